// The exported functions: shells of a few lines, nothing else.

#include "norvik/norvik.h"
#include "src/Norvik.h"

namespace {

// Comes to life when the library is loaded. When it is unloaded or the process ends, the application cleans up as soon
// as no thread is inside it any more.
struct Lifetime {
    Lifetime() { CNorvikApp::Start(); }
    ~Lifetime() { CNorvikApp::Stop(); }
    Lifetime(const Lifetime&) = delete;
    Lifetime& operator=(const Lifetime&) = delete;
} const lifetime;

}  // namespace

void NorvikInit(void* window) {
    if (const auto app = CNorvikApp::Current()) app->parentWindow = window;
}
