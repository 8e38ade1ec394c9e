#include <time.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <functional>
#include <iostream>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include <android/binder_process.h>

#include "fuzz/Served.h"
#include "host/velactl/Platform.h"
#include "host/velactl/Recording.h"
#include "host/velactl/Replay.h"
#include "host/velactl/Script.h"

// Texts that people and programs write: the first byte chooses whether the rest is a session, a
// recording or a batch of the simulated chip. They reach a service in this process, and no file
// but those of the current folder.

namespace {

std::shared_ptr<fuzz::display::IVela> gService;

/** A session's lines. Loops within loops could run for days: there is one, of up to nine rounds. */
class Lines {
  public:
    explicit Lines(const std::string& text) : mIn(text) {}

    std::optional<std::string> next() {
        std::string line;
        if (!std::getline(mIn, line)) return std::nullopt;
        const size_t word = line.find("repeat ");
        if (word == std::string::npos) return line;
        if (++mLoops > 1) return "# " + line;
        return line.substr(0, word + sizeof("repeat"));
    }

  private:
    std::istringstream mIn;
    int mLoops = 0;
};

}  // namespace

// What the texts' readers ask of the process around them.

extern "C" int nanosleep(const timespec* /*time*/, timespec* /*left*/) {
    return 0;
}

void ABinderProcess_startThreadPool() {}

namespace velactl {

Failure connect(std::shared_ptr<codec::display::IVela>* out) {
    *out = gService;
    return {};
}

std::string restartAdvice() {
    return {};
}

std::string freshAdvice() {
    return {};
}

std::function<void()> settler() {
    return [] {};
}

std::function<std::vector<std::string>()> refusalTaker() {
    return nullptr;
}

Failure screenshot(int /*display*/, const std::string& /*file*/) {
    return {};
}

}  // namespace velactl

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    // What is printed goes nowhere; a failure to print would end the program.
    static std::ofstream nowhere("/dev/null");
    std::cout.rdbuf(nowhere.rdbuf());
    std::cerr.rdbuf(nowhere.rdbuf());
    std::string text(data + 1, data + size);
    const fuzz::Served served((data[0] & 0x80) == 0);
    gService = served.service();
    if (data[0] % 3 == 0) {
        (void)gService->velaConfigureBatch(1, text, &text);
    } else {
        std::replace(text.begin(), text.end(), '/', '_');
        if (data[0] % 3 == 1) {
            Lines lines(text);
            (void)velactl::Script({.name = "session", .keepGoing = (data[0] & 0x40) != 0},
                                  [&lines](size_t) { return lines.next(); })
                    .run();
        } else {
            std::istringstream in(text);
            const auto recording = std::make_shared<velactl::Recording>();
            bool equal = false;
            if (!velactl::parseRecording(in, "recording", recording.get())) {
                (void)velactl::replay(recording, std::chrono::milliseconds(0), &equal);
            }
        }
    }
    gService.reset();
    return 0;
}
