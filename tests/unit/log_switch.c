/* SPDX-License-Identifier: Apache-2.0 */
/*
 * A program in C that was not linked with the library, as the web administration is: it loads it and asks for the functions by their names.
 *
 * usage: log_switch LIBRARY on FILE | off | id [SERVICE] | domain      (prints the result, a blank, and the text)
 */
#include <dlfcn.h>
#include <stdio.h>
#include <string.h>

#include <relay/common/ardvrelayd.h>

static __typeof__(&ALIBRelaydLogStart) logStart;
static __typeof__(&ALIBRelaydLogStop) logStop;
static __typeof__(&ALIBRelaydGetServerId) getServerId;
static __typeof__(&ALIBRelaydGetPortalDomain) getPortalDomain;

/* POSIX lets an address of the one kind be read as one of the other. */
static int Load(void* library, const char* name, void* function) {
    void* address = dlsym(library, name);
    memcpy(function, &address, sizeof address);
    return address != NULL;
}

static int Call(int count, char* const* words, char* text, size_t size) {
    if (strcmp(words[0], "on") == 0) {
        return logStart(count > 1 ? words[1] : NULL);
    }
    if (strcmp(words[0], "off") == 0) {
        return logStop();
    }
    if (strcmp(words[0], "id") == 0) {
        return getServerId(count > 1 ? words[1] : NULL, text, size);
    }
    return getPortalDomain(text, size);
}

int main(int argc, char** argv) {
    char text[64] = "";
    void* library = argc > 2 ? dlopen(argv[1], RTLD_NOW | RTLD_LOCAL) : NULL;
    if (!library) {
        fprintf(stderr, "%s\n",
                argc > 2 ? dlerror() : "usage: log_switch LIBRARY on FILE | off | id [SERVICE] | domain");
        return 1;
    }
    if (!Load(library, "ALIBRelaydLogStart", &logStart) || !Load(library, "ALIBRelaydLogStop", &logStop) ||
        !Load(library, "ALIBRelaydGetServerId", &getServerId) ||
        !Load(library, "ALIBRelaydGetPortalDomain", &getPortalDomain)) {
        return 2;
    }
    printf("%d ", Call(argc - 2, argv + 2, text, sizeof text));
    printf("%s\n", text);
    return 0;
}
