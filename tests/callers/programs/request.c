/* An application in plain C that makes one request, as it stands on the standard input in UTF-16 of this machine, and
 * writes what came of it: the result and the calls, and each answer as it came. request LIBRARY FUNCTION, which takes a
 * request in JSON. "null" as a third argument leaves the callback out. */
#include <dlfcn.h>
#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <uchar.h>

typedef void (*Answer)(uint64_t context, const char16_t* json);
typedef bool (*JsonFunction)(const char16_t* request, Answer answer, uint64_t context);

static int calls;

static void WriteAnswer(uint64_t context, const char16_t* json) {
    ++calls;
    printf("context %llx\n", (unsigned long long)context);
    for (; *json != 0; ++json)
        putchar(*json < 0x80 ? (int)*json : '.');
    putchar('\n');
}

/* The text with its end; the caller frees it. */
static char16_t* ReadRequest(void) {
    size_t room = 4096, size = 0;
    char* bytes = malloc(room);
    while (bytes != NULL) {
        const size_t got = fread(bytes + size, 1, room - size - sizeof(char16_t), stdin);
        if (got == 0) break;
        size += got;
        if (room - size > 1024) continue;
        room *= 2;
        char* const more = realloc(bytes, room);
        if (more == NULL) free(bytes);
        bytes = more;
    }
    if (bytes != NULL) memset(bytes + size - size % sizeof(char16_t), 0, sizeof(char16_t));
    return (char16_t*)bytes;
}

int main(int count, char** arguments) {
    if (count < 3) return 2;
    void* const library = dlopen(arguments[1], RTLD_NOW | RTLD_LOCAL);
    JsonFunction function = NULL;
    if (library != NULL) *(void**)&function = dlsym(library, arguments[2]);
    if (function == NULL) {
        fprintf(stderr, "%s\n", dlerror());
        return 2;
    }
    char16_t* const request = ReadRequest();
    const bool silent = count > 3 && strcmp(arguments[3], "null") == 0;
    const bool done = function(request, silent ? NULL : WriteAnswer, 0xFEDCBA9876543210u);
    printf("done %d calls %d\n", done, calls);
    free(request);
    dlclose(library);
    return 3; /* a status of its own, which nobody may replace */
}
