// SPDX-License-Identifier: Apache-2.0
#include <relay/utils/portal_check.h>

#include <ardv/web_service.h>
#include <ardvw3/engine.h>
#include <ardvw3/hos.h>

namespace ARDV::Relay {

bool IsHttpRedirectedToHttps() {
    ardvw3::Engine engine;
    return ardvw3::HOS(engine).GetEnableHttpsRedirect() && ARDVServiceIsHttpDefaultConf() != 1;
}

}  // namespace ARDV::Relay
