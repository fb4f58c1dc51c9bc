// SPDX-License-Identifier: Apache-2.0
#include <ardv/web_service.h>

#include "platform/linux/error.h"
#include "platform/linux/key_value_cache.h"
#include "platform/linux/web_settings.h"

namespace ARDV::Platform {

namespace {

int ReadDefaultConf() {
    const Result<MaybeText> value = ReadKeyValue(kWebSettingsFile, "http_default_conf");
    if (value) {
        return *value == "yes" ? 1 : 0;
    }
    return value.Reason().code == ARDV_ERR_NOT_FOUND ? 0 : Fail(value.Reason());
}

}  // namespace

}  // namespace ARDV::Platform

using namespace ARDV::Platform;

int ARDVServiceIsHttpDefaultConf() {
    return Guarded(ReadDefaultConf);
}
