// SPDX-License-Identifier: Apache-2.0
// The platform's headers are for C callers too: this file uses each of them as C.
#include <ardv/cloud_identity.h>
#include <ardv/device_features.h>
#include <ardv/dynamic_dns.h>
#include <ardv/error.h>
#include <ardv/firewall_service.h>
#include <ardv/key_value_file.h>
#include <ardv/network.h>
#include <ardv/port_mapping.h>
#include <ardv/program.h>
#include <ardv/system_service.h>
#include <ardv/user_agent.h>
#include <ardv/web_service.h>

#include <string.h>

static int CountWorkingNetworkCalls(void) {
    ALIB_NETIF table[1] = {{"", 0, "", ""}};
    ARDV_IPV6_ADDRESS addresses[1];
    char text[128] = "x";
    int working = 0;
    working += ALIBNetGetInterfaceInfo(table, 1) == 1 && table[0].type == ARDV_INTERFACE_LOOPBACK;
    working += ALIBIsValidIpMask(table[0].ip, table[0].mask) == 1;
    working += ARDVLnxV6IPGet(table[0].name, addresses, 1) >= 0;
    working += ARDVNetDefaultGatewayGet(text, sizeof(text)) < 0 && text[0] == '\0';
    working += ARDVPPPoECheckStatus(0) == 0;
    working += ARDVPPPoeNetInfoGet(text, sizeof(text), text, sizeof(text)) < 0;
    working += ARDVPPPoeIntfGet(text, sizeof(text)) < 0 && ALIBCErrGet() == ARDV_ERR_NO_DEVICE;
    return working;
}

static int CountWorkingServiceCalls(void) {
    ARDV_FW_SERVICE_LIST* list = NULL;
    ARDV_DDNS_CONFIG config;
    int routerPort = 1;
    const int count = ARDVFwServiceEnum(&list);
    const ARDV_FW_SERVICE* service = ARDVFWServiceFind(list, "dms");
    int working = 0;
    working += count == 1 && service != NULL && service->port_count == 1 && strcmp(service->ports[0], "5000") == 0;
    ARDVFWServiceFree(list);
    working += ALIBCSupportGet("no such feature") == 0;
    working += ARDVDDNSConfigGet("no/provider", &config) < 0 && config.hostname[0] == '\0';
    working += ARDVInetdServiceIsEnable("no-such-server") == 0;
    working += ARDVServiceIsHttpDefaultConf() >= 0;
    working += ALibArdvPortMapGetRouterPort(0, &routerPort) < 0 && routerPort == 0;
    return working;
}

int CountWorkingCallsFromC(const char* file) {
    char text[ARDV_API_KEY_SIZE] = "";
    int working = 0;
    working += ALIBCFileSetKeyValue(file, "language", "C", 0) == 0;
    working += ALIBCFileGetKeyValue(file, "language", text, sizeof(text), 0) == 1 && text[0] == 'C';
    working += ALIBCFileCheckKeyValue(file, "language", "C", 0) == 1;
    working += ALIBHsinfoUserAgentGet("Tethra", text, sizeof(text), 0) == 0 && text[0] == 'T';
    working += ARDVCloudServiceGetApiKey(text, 1) < 0 && ALIBCErrGet() == ARDV_ERR_INVALID_ARGUMENT;
    working += ARDVHsinfoCloudServiceGetMacAddress(text, 0) < 0 && ALIBCErrorGetLine() > 0;
    working += ARDVCloudServiceHstokenGetToken(text, 0, text, 0) < 0 && ALIBCErrorGetFile()[0] != '\0';
    working += ARDVCloudServiceHstokenGenerateToken("", text, ARDV_TOKEN_SIZE) < 0;
    working += ALIBCExecl("/bin/true", ARDV_EXEC_HELPER, NULL, NULL) == 0;
    return working + CountWorkingNetworkCalls() + CountWorkingServiceCalls();
}
