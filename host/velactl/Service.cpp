#include "host/velactl/Service.h"

#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <vector>

#include <android/binder_ibinder.h>

#include "host/velactl/Platform.h"

namespace velactl {

using codec::display::IVela;

std::string instanceName() {
    return std::string(IVela::descriptor) + "/default";
}

namespace {

/** Parameters or fields: [{"name", "type"}]. */
Json partsJson(const std::vector<codec::Parameter>& parts) {
    Json list = Json::array();
    for (const codec::Parameter& part : parts)
        list.push_back({{"name", part.name}, {"type", part.type}});
    return list;
}

}  // namespace

Failure info() {
    std::shared_ptr<IVela> vela;
    if (auto failure = connect(&vela)) return failure;
    int32_t version = 0;
    if (auto failure = statusError("getInterfaceVersion", vela->getInterfaceVersion(&version))) {
        return failure;
    }
    std::string hash;
    if (auto failure = statusError("getInterfaceHash", vela->getInterfaceHash(&hash))) {
        return failure;
    }
    printLine({{"instance", instanceName()},
               {"descriptor", IVela::descriptor},
               {"version", version},
               {"hash", hash},
               {"alive", AIBinder_ping(vela->asBinder().get()) == STATUS_OK}});
    return {};
}

Failure list() {
    std::string text;
    Json json = Json::object();
    const auto add = [&](const std::string& interface, const auto& operations) {
        for (const auto& operation : operations) {
            text += interface + " " + operation.signature() + "\n";
            json[interface].push_back({{"name", operation.name},
                                       {"result", operation.result},
                                       {"parameters", partsJson(operation.parameters)}});
        }
    };
    add("vela", codec::velaOperations());
    add("composer", codec::composerOperations());
    for (const codec::RecordDescription& record : codec::recordDescriptions()) {
        text += "record " + record.text() + "\n";
        json["records"].push_back({{"name", record.name}, {"fields", partsJson(record.fields)}});
    }
    printResult(text, json);
    return {};
}

Failure dump() {
    std::shared_ptr<IVela> vela;
    if (auto failure = connect(&vela)) return failure;
    // Through a file, so that a full disk behind stdout does not go unseen.
    const ndk::ScopedFileDescriptor file(memfd_create("dump", MFD_CLOEXEC));
    const binder_status_t status = AIBinder_dump(vela->asBinder().get(), file.get(), nullptr, 0);
    if (auto failure = statusError("dump", ndk::ScopedAStatus::fromStatus(status))) return failure;
    std::string text;
    std::array<char, 4096> chunk{};
    ssize_t count = 0;
    while ((count = pread(file.get(), chunk.data(), chunk.size(),
                          static_cast<off_t>(text.size()))) > 0) {
        text.append(chunk.data(), static_cast<size_t>(count));
    }
    printResult(text, {{"instance", instanceName()}, {"dump", text}});
    return {};
}

}  // namespace velactl
