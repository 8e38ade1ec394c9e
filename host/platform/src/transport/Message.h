#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include <android-base/unique_fd.h>

#include "parcel/Parcel.h"
#include "transport/Wire.h"

namespace binder {

/** A descriptor that several may hold. */
using SharedFd = std::shared_ptr<const android::base::unique_fd>;

/** What a message is sent from; refers to the parcel's bytes and descriptors, copies nothing. */
struct Outgoing {
    struct Descriptor {
        int fd;
        SharedFd held = nullptr;  // the same; null when it is borrowed
    };

    Header header{};
    std::span<const uint8_t> data;
    std::vector<uint8_t> table;
    std::vector<Descriptor> descriptors;

    size_t size() const { return sizeof(header) + data.size() + table.size(); }
};

/** A whole message that has arrived. Owns the descriptors until they are taken out. */
struct Incoming {
    Header header{};
    std::unique_ptr<AParcel> parcel;  // holds the data
    std::vector<uint8_t> table;
    std::vector<android::base::unique_fd> descriptors;
    bool descriptorsLost = false;  // this process had no room for all of them
};

}  // namespace binder
