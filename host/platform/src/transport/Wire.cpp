#include "transport/Wire.h"

#include <algorithm>
#include <charconv>
#include <cstring>

namespace binder {
namespace {

constexpr size_t kHexDigits = 16;

ConnectionKind connectionOf(MessageKind kind) {
    return kind <= MessageKind::kLine ? ConnectionKind::kCall : ConnectionKind::kOneway;
}

bool isTransaction(MessageKind kind) {
    return kind == MessageKind::kCall || kind == MessageKind::kReply ||
           kind == MessageKind::kOneway;
}

uint32_t mostCounted(MessageKind kind) {
    switch (kind) {
        case MessageKind::kCall:
            return kMaxNesting;
        case MessageKind::kServed:
            return UINT32_MAX;
        default:
            return 0;
    }
}

template <typename T>
void readAll(std::span<const uint8_t> bytes, std::vector<T>* out) {
    out->resize(bytes.size() / sizeof(T));
    if (!bytes.empty()) memcpy(out->data(), bytes.data(), bytes.size());
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

std::string_view endpointOf(const ObjectRecord& record) {
    return {record.endpoint, strnlen(record.endpoint, sizeof(record.endpoint))};
}

std::optional<ConnectionKind> kindBegunBy(MessageKind kind) {
    switch (kind) {
        case MessageKind::kCall:
        case MessageKind::kHold:
        case MessageKind::kOneway:
            return connectionOf(kind);
        default:
            return std::nullopt;
    }
}

const char* checkHeader(const Header& header, ConnectionKind connection) {
    if (header.magic != Header::kMagic) return "no message header";
    if (header.kind < MessageKind::kCall || header.kind > MessageKind::kDone ||
        connectionOf(header.kind) != connection) {
        return "unexpected kind of message";
    }
    if (header.count > mostCounted(header.kind)) return "too much counted";
    if (!isTransaction(header.kind)) {
        return header.dataSize == 0 && header.objectCount == 0 ? nullptr : "unexpected data";
    }
    const size_t most = header.kind == MessageKind::kOneway ? kMaxOneway : kMaxTransaction;
    if (descriptorsOf(header) > kMaxDescriptors) return "too many descriptors";
    if (header.dataSize > most || header.objectCount * kOffsetSize > most - header.dataSize) {
        return "transaction too large";
    }
    return nullptr;
}

size_t tableSizeOf(const Header& header) {
    const size_t waiting = header.kind == MessageKind::kCall ? header.count : 0;
    return header.objectCount * sizeof(ObjectRecord) + waiting * sizeof(pid_t);
}

size_t descriptorsOf(const Header& header) {
    const bool bringsOne = header.kind == MessageKind::kLine || header.kind == MessageKind::kHold;
    return bringsOne ? 1 : header.objectCount;
}

std::optional<Table> parseTable(const Header& header, std::span<const uint8_t> bytes) {
    if (bytes.size() != tableSizeOf(header)) return std::nullopt;
    Table table;
    const size_t records = header.objectCount * sizeof(ObjectRecord);
    readAll(bytes.first(records), &table.objects);
    readAll(bytes.subspan(records), &table.waiting);
    uint64_t free = 0;  // no object may begin before this offset
    for (const ObjectRecord& record : table.objects) {
        if (record.offset < free || record.offset >= header.dataSize) return std::nullopt;
        free = uint64_t{record.offset} + 1;
        const bool isBinder = record.kind == ObjectRecord::Kind::kBinder;
        if (!isBinder && record.kind != ObjectRecord::Kind::kDescriptor) return std::nullopt;
        if (isBinder && !isEndpointName(endpointOf(record))) return std::nullopt;
    }
    return table;
}

std::optional<Message> parseMessage(std::span<const uint8_t> bytes, ConnectionKind connection) {
    Message message{};
    if (bytes.size() < sizeof(message.header)) return std::nullopt;
    memcpy(&message.header, bytes.data(), sizeof(message.header));
    if (checkHeader(message.header, connection) != nullptr) return std::nullopt;
    const std::span<const uint8_t> body = bytes.subspan(sizeof(message.header));
    if (body.size() < message.header.dataSize) return std::nullopt;
    message.data = body.first(message.header.dataSize);
    std::optional<Table> table = parseTable(message.header, body.subspan(message.header.dataSize));
    if (!table.has_value()) return std::nullopt;
    message.table = std::move(*table);
    return message;
}

std::vector<uint8_t> bytesOf(const Table& table) {
    const size_t records = table.objects.size() * sizeof(ObjectRecord);
    const size_t waiting = table.waiting.size() * sizeof(pid_t);
    std::vector<uint8_t> bytes(records + waiting);
    if (records > 0) memcpy(bytes.data(), table.objects.data(), records);
    if (waiting > 0) memcpy(bytes.data() + records, table.waiting.data(), waiting);
    return bytes;
}

}  // namespace binder
