#include "transport/Wire.h"

#include <algorithm>
#include <charconv>
#include <cstring>

namespace binder {
namespace {

constexpr size_t kHexDigits = 16;

struct RecordHeader {
    uint32_t kind;
    uint32_t offset;
    uint64_t id;
    uint32_t stability;
    uint32_t endpointLength;
};
static_assert(sizeof(RecordHeader) == 24);

bool isKindAllowed(MessageKind kind, ConnectionKind connection) {
    switch (kind) {
        case MessageKind::kCall:
        case MessageKind::kReply:
            return connection == ConnectionKind::kCall;
        case MessageKind::kOneway:
        case MessageKind::kServed:
            return connection == ConnectionKind::kOneway;
        case MessageKind::kRelease:
            return connection != ConnectionKind::kCall;
        case MessageKind::kGrant:
        case MessageKind::kRevoke:
        case MessageKind::kClaim:
            return connection == ConnectionKind::kControl;
    }
    return false;
}

bool isTransaction(MessageKind kind) {
    return kind == MessageKind::kCall || kind == MessageKind::kReply ||
           kind == MessageKind::kOneway;
}

bool carriesName(MessageKind kind) {
    return kind == MessageKind::kGrant || kind == MessageKind::kRevoke ||
           kind == MessageKind::kClaim;
}

}  // namespace

bool isEndpointName(std::string_view name) {
    const size_t dot = name.find('.');
    if (dot == 0 || dot == std::string_view::npos || dot > 10) return false;
    const std::string_view digits = name.substr(0, dot);
    const std::string_view hex = name.substr(dot + 1);
    const auto isDecimal = [](char c) { return c >= '0' && c <= '9'; };
    const auto isHex = [&](char c) { return isDecimal(c) || (c >= 'a' && c <= 'f'); };
    return std::all_of(digits.begin(), digits.end(), isDecimal) && pidOfEndpoint(name) > 0 &&
           hex.size() == kHexDigits && std::all_of(hex.begin(), hex.end(), isHex);
}

pid_t pidOfEndpoint(std::string_view name) {
    pid_t pid = 0;
    std::from_chars(name.data(), name.data() + name.size(), pid);
    return pid;
}

std::optional<std::string_view> parseHello(const Hello& hello) {
    if (hello.magic != Hello::kMagic) return std::nullopt;
    switch (hello.kind) {
        case ConnectionKind::kControl:
        case ConnectionKind::kCall:
        case ConnectionKind::kOneway:
            break;
        default:
            return std::nullopt;
    }
    const std::string_view name(hello.endpoint, strnlen(hello.endpoint, sizeof(hello.endpoint)));
    if (!isEndpointName(name)) return std::nullopt;
    return name;
}

const char* checkHeader(const Header& header, ConnectionKind connection) {
    if (header.magic != Header::kMagic) return "no message header";
    if (!isKindAllowed(header.kind, connection)) return "unexpected kind of message";
    if (!isTransaction(header.kind)) {
        const size_t most = carriesName(header.kind) ? kMaxEndpointName : 0;
        const bool small = header.dataSize == 0 && header.objectCount == 0 &&
                           header.descriptorCount == 0 && header.tableSize <= most &&
                           header.count <= UINT32_MAX;
        return small ? nullptr : "control message of a wrong size";
    }
    const size_t most = header.kind == MessageKind::kOneway ? kMaxOneway : kMaxTransaction;
    if (header.dataSize > most || header.objectCount > (most - header.dataSize) / kOffsetSize) {
        return "transaction too large";
    }
    if (header.tableSize > kMaxTransaction ||
        header.tableSize < header.objectCount * sizeof(RecordHeader)) {
        return "object table of a wrong size";
    }
    if (header.descriptorCount > std::min<size_t>(header.objectCount, kMaxDescriptors)) {
        return "too many descriptors";
    }
    return nullptr;
}

std::optional<std::vector<ObjectRecord>> parseTable(const Header& header,
                                                    std::span<const uint8_t> table) {
    std::vector<ObjectRecord> records;
    records.reserve(header.objectCount);
    size_t descriptors = 0;
    while (!table.empty()) {
        RecordHeader fixed;
        if (table.size() < sizeof(fixed)) return std::nullopt;
        memcpy(&fixed, table.data(), sizeof(fixed));
        table = table.subspan(sizeof(fixed));
        if (table.size() < fixed.endpointLength) return std::nullopt;
        const ObjectRecord record{
                .kind = static_cast<ObjectRecord::Kind>(fixed.kind),
                .offset = fixed.offset,
                .id = fixed.id,
                .stability = fixed.stability,
                .endpoint = {reinterpret_cast<const char*>(table.data()), fixed.endpointLength}};
        table = table.subspan(fixed.endpointLength);
        if (!records.empty() && record.offset <= records.back().offset) return std::nullopt;
        if (record.offset >= header.dataSize) return std::nullopt;
        if (record.kind == ObjectRecord::Kind::kBinder) {
            if (!record.endpoint.empty() && !isEndpointName(record.endpoint)) {
                return std::nullopt;
            }
        } else if (record.kind == ObjectRecord::Kind::kDescriptor) {
            if (!record.endpoint.empty()) return std::nullopt;
            ++descriptors;
        } else {
            return std::nullopt;
        }
        records.push_back(record);
    }
    if (records.size() != header.objectCount || descriptors != header.descriptorCount) {
        return std::nullopt;
    }
    return records;
}

std::optional<std::string_view> parseName(std::span<const uint8_t> table) {
    const std::string_view name(reinterpret_cast<const char*>(table.data()), table.size());
    return isEndpointName(name) ? std::optional(name) : std::nullopt;
}

std::optional<Message> parseMessage(std::span<const uint8_t> bytes, ConnectionKind connection) {
    Message message{};
    if (bytes.size() < sizeof(message.header)) return std::nullopt;
    memcpy(&message.header, bytes.data(), sizeof(message.header));
    if (checkHeader(message.header, connection) != nullptr) return std::nullopt;
    const std::span<const uint8_t> body = bytes.subspan(sizeof(message.header));
    if (body.size() != size_t{message.header.dataSize} + message.header.tableSize) {
        return std::nullopt;
    }
    message.data = body.first(message.header.dataSize);
    message.table = body.subspan(message.header.dataSize);
    if (carriesName(message.header.kind)) {
        if (!parseName(message.table).has_value()) return std::nullopt;
        return message;
    }
    std::optional<std::vector<ObjectRecord>> objects = parseTable(message.header, message.table);
    if (!objects.has_value()) return std::nullopt;
    message.objects = std::move(*objects);
    return message;
}

void appendRecord(const ObjectRecord& record, std::vector<uint8_t>* table) {
    const RecordHeader fixed{.kind = static_cast<uint32_t>(record.kind),
                             .offset = record.offset,
                             .id = record.id,
                             .stability = record.stability,
                             .endpointLength = static_cast<uint32_t>(record.endpoint.size())};
    const auto* const bytes = reinterpret_cast<const uint8_t*>(&fixed);
    table->insert(table->end(), bytes, bytes + sizeof(fixed));
    table->insert(table->end(), record.endpoint.begin(), record.endpoint.end());
}

}  // namespace binder
