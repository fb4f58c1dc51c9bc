// SPDX-License-Identifier: Apache-2.0
// A program that uses the platform's library alone.
#include <iostream>

#include <ardv/error.h>
#include <ardv/port_mapping.h>
#include <ardv/program.h>
#include <ardvw3/engine.h>
#include <ardvw3/hos.h>
#include <ardvw3/nginx_conf_register.h>

using namespace ardvw3;

namespace {

int Check(bool holds, const char* what) {
    if (!holds) {
        std::cerr << "consumer_platform.cpp: " << what << '\n';
    }
    return holds ? 0 : 1;
}

}  // namespace

int main() {
    Engine engine;
    HOS settings(engine);
    int failures = Check(settings.GetHttpPort() > 0, "the web server has a port");
    failures += Check(settings.SetEnableRelayDDNS("no host name") != 0, "a name that is none is refused");
    const Result<W3Code, Json::Value> done = NginxConfRegister().DoAction(nullptr, false);
    failures += Check(done.GetCode() == W3Code::kInvalidArgument, "there is no action to do");
    failures += Check(done.GetValue()["message"].isString(), "a result has a message");
    const NginxConfRegActionDisableAndUnReg removal("a.conf");
    int port = 1;
    failures += Check(ALibArdvPortMapGetRouterPort(0, &port) < 0 && port == 0, "0 is no port");
    failures += Check(ALIBCErrGet() == ARDV_ERR_INVALID_ARGUMENT, "a failure has a code");
    failures += Check(ALIBCExecl("/bin/true", ARDV_EXEC_HELPER, "argument", nullptr) == 0, "a helper program is run");
    return failures;
}
