#include "host/velahost/Frames.h"

#include <array>
#include <cstdio>
#include <iostream>
#include <utility>

#include "host/velahost/OutFile.h"

void Frames::write(uint64_t number, const std::string& json, const std::string& svg) {
    std::array<char, 32> name{};
    (void)std::snprintf(name.data(), name.size(), "/frame-%06llu",
                        static_cast<unsigned long long>(number));
    const std::lock_guard guard(mLock);
    for (const auto& [extension, text] : {std::pair(".json", &json), std::pair(".svg", &svg)}) {
        OutFile file("frame", {.path = mFolder + name.data() + extension});
        if (mFailed || file.begin(*text)) continue;
        mFailed = true;
        std::cerr << "velahost: " + file.error() + "\n" << std::flush;
    }
}

bool Frames::isComplete() {
    const std::lock_guard guard(mLock);
    return !mFailed;
}
