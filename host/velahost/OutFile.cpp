#include "host/velahost/OutFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iostream>

std::string OutFile::partPath(const FileOptions& options, uint32_t part) {
    if (options.limit == 0) return options.path;
    const std::filesystem::path path(options.path);
    char number[16];
    std::snprintf(number, sizeof(number), "-%06u", part);
    return path.parent_path() / (path.stem().string() + number + path.extension().string());
}

uint64_t OutFile::fills() const {
    return mFile < 0 || mOptions.limit == 0 ? 0 : mSize / mOptions.limit;
}

bool OutFile::begin(const std::string& head) {
    mSize = 0;
    mPath = partPath(mOptions, ++mPart);
    constexpr int kFlags = O_WRONLY | O_CLOEXEC | O_NOCTTY;
    // A pipe that nobody reads is an error here, and not waited for.
    mFile.reset(open(mPath.c_str(), kFlags | O_NONBLOCK | O_CREAT | O_EXCL, 0666));
    mMade = mFile >= 0;
    if (!mMade && errno == EEXIST) mFile.reset(open(mPath.c_str(), kFlags | O_NONBLOCK | O_TRUNC));
    if (mFile < 0 || fcntl(mFile, F_SETFL, kFlags) != 0 || !append(head)) {
        fail();
        if (mPart > 1) std::cerr << "velahost: " + mError + "\n" << std::flush;
        return false;
    }
    return true;
}

bool OutFile::write(const std::string& text) {
    if (mFile < 0) return false;
    if (append(text)) return true;
    fail();
    std::cerr << "velahost: " + mError + "\n" << std::flush;
    return false;
}

bool OutFile::append(const std::string& text) {
    size_t done = 0;
    while (done < text.size()) {
        const ssize_t count = ::write(mFile, text.data() + done, text.size() - done);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return false;
        done += static_cast<size_t>(count);
    }
    mSize += text.size();
    return true;
}

void OutFile::fail() {
    mError = "cannot write the " + mWhat + " to " + mPath + ": " + std::strerror(errno);
    if (mFile >= 0 && mMade && mSize == 0) unlink(mPath.c_str());
    // Pipes and devices keep what they were given.
    if (mFile >= 0) (void)!ftruncate(mFile, static_cast<off_t>(mSize));
    close();
}
