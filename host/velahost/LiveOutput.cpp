#include "host/velahost/LiveOutput.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

bool LiveOutput::begin(const std::string& head) {
    if (fcntl(mPipe, F_SETFL, O_NONBLOCK) == 0) return write(head);
    mError = std::strerror(errno);
    return false;
}

bool LiveOutput::write(const std::string& text) {
    if (drain()) {
        if (mLost > 0) mPending = textOf({{"lost", mLost}}) + "\n";
        mLost = 0;
        mPending += text;
        (void)drain();
    } else {
        ++mLost;
    }
    return mError.empty();
}

bool LiveOutput::drain() {
    while (!mPending.empty() && mError.empty()) {
        const ssize_t count = ::write(mPipe, mPending.data(), mPending.size());
        if (count >= 0) {
            mPending.erase(0, static_cast<size_t>(count));
        } else if (errno == EAGAIN) {
            return false;
        } else if (errno != EINTR) {
            mError = std::strerror(errno);
        }
    }
    return mError.empty();
}
