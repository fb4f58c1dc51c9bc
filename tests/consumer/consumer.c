/* SPDX-License-Identifier: Apache-2.0 */
#include <stdio.h>
#include <string.h>

#include <ardv/cloud_identity.h>
#include <ardv/error.h>
#include <ardv/key_value_file.h>
#include <ardv/user_agent.h>
#include <relay/common/ardvrelayd.h>

static int Check(int holds, const char* what) {
    if (!holds) {
        fprintf(stderr, "consumer.c: %s\n", what);
    }
    return holds ? 0 : 1;
}

int main(void) {
    char text[64] = "untouched";
    int failures = Check(ALIBRelaydGetServerId(NULL, text, sizeof text) == -1, "there is no configuration to read");
    failures += Check(text[0] == '\0', "the buffer is emptied first");
    failures += Check(ALIBRelaydLogStart(NULL) == -1, "a log needs a file");
    failures +=
        Check(ALIBCFileGetKeyValue("/nonexistent", "key", text, sizeof text, 0) < 0, "a missing file is a failure");
    failures += Check(ALIBCErrGet() != 0, "a failure has a code");
    failures += Check(ALIBHsinfoUserAgentGet("Tethra", text, sizeof text, 0) == 0, "there is a user agent");
    failures += Check(strncmp(text, "Tethra/", 7) == 0, "the user agent names the product");
    return failures;
}
