/* An application in plain C that knows nothing of the toolkit which draws the windows. It loads the library as a
 * plug-in would, asks for the certificates of a PFX file and writes what came of it, one fact a line. caller LIBRARY
 * PFX MODE [PASSWORD] */
#include <dlfcn.h>
#include <locale.h>
#include <pthread.h>
#include <signal.h>
#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <uchar.h>
#include <unistd.h>

typedef void (*Answer)(uint64_t context, const char16_t* json);
typedef bool (*CertInfoJson)(const char16_t* request, Answer answer, uint64_t context);

static void* library;
static char16_t request[4096];

static void WriteAnswer(uint64_t context, const char16_t* json) {
    (void)context;
    printf("answer ");
    for (; *json != 0; ++json)
        putchar(*json < 0x80 && *json != '\n' ? (int)*json : '.');
    putchar('\n');
    fflush(stdout);
}

static void* Ask(void* unused) {
    (void)unused;
    CertInfoJson certInfo = NULL;
    *(void**)&certInfo = dlsym(library, "NorvikCertInfoJson");
    const bool done = certInfo(request, WriteAnswer, 0);
    printf("done %d\n", done);
    return NULL;
}

/* Whether a library with that word in its name is loaded. */
static bool Maps(const char* word) {
    char command[64];
    snprintf(command, sizeof command, "grep -q %s /proc/%d/maps", word, getpid());
    return system(command) == 0;
}

static bool HandlersAreDefault(void) {
    static const int signals[] = {SIGINT, SIGTERM, SIGHUP, SIGSEGV, SIGABRT, SIGCHLD, SIGPIPE};
    for (size_t i = 0; i < sizeof signals / sizeof *signals; ++i) {
        struct sigaction action;
        if (sigaction(signals[i], NULL, &action) != 0 || action.sa_handler != SIG_DFL) return false;
    }
    return true;
}

/* The child goes through the exit handlers of all libraries. One of them may wait for a thread that only the parent
 * has, so the child gets a second and is ended then. */
static void Fork(void) {
    const pid_t child = fork();
    if (child == 0) exit(7);
    for (int waited = 0; waited < 50 && waitpid(child, NULL, WNOHANG) == 0; ++waited)
        usleep(20000);
    if (kill(child, SIGKILL) == 0) waitpid(child, NULL, 0);
}

int main(int count, char** arguments) {
    if (count < 4) return 2;
    const char* const mode = arguments[3];
    char text[2048];
    snprintf(text, sizeof text, "{\"Filename\":\"%s\",\"Password\":\"%s\"}", arguments[2],
             count > 4 ? arguments[4] : "");
    for (size_t i = 0; text[i] != '\0'; ++i)
        request[i] = (unsigned char)text[i];
    library = dlopen(arguments[1], RTLD_NOW | RTLD_LOCAL);
    if (library == NULL) return 2;
    for (int left = strcmp(mode, "often") == 0 ? 200 : 1; left > 0; --left)
        Ask(NULL);
    if (strcmp(mode, "thread") == 0) {
        pthread_t thread;
        pthread_create(&thread, NULL, Ask, NULL);
        pthread_join(thread, NULL);
    }
    if (strcmp(mode, "fork") == 0) {
        Fork();
        Ask(NULL);
    }
    printf("locale %s\nwindows %d\nhandlers %s\n", setlocale(LC_ALL, NULL), Maps("libQt6"),
           HandlersAreDefault() ? "default" : "changed");
    if (strcmp(mode, "unload") == 0) dlclose(library);
    return 3; /* a status of its own, which nobody may replace */
}
