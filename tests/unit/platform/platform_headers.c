// SPDX-License-Identifier: Apache-2.0
// The platform's headers are for C callers too: this file uses each of them as C.
#include <ardv/cloud_identity.h>
#include <ardv/error.h>
#include <ardv/key_value_file.h>
#include <ardv/user_agent.h>

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
    return working;
}
