#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include <sys/types.h>

/**
 * The bytes that processes exchange over their sockets.
 *
 * A connection begins with one Hello from the side that connected and carries messages from then
 * on: a Header, the parcel's data, and a table of the binders and descriptors that the data refers
 * to. Descriptors travel as ancillary data with the first bytes of their message. Sender and
 * receiver run on the same machine and speak the same version, so integers have the machine's byte
 * order.
 *
 * Everything here is a function of bytes and trusts none of them; parseMessage() is the entry for
 * whoever wants to feed it arbitrary ones.
 */
namespace binder {

/** Data and object offsets of one transaction or reply, as the kernel driver limits them. */
inline constexpr size_t kMaxTransaction = 1'040'384;
/** Descriptors in one transaction. */
inline constexpr size_t kMaxDescriptors = 1024;
/** The id of the object that a service manager's host serves. */
inline constexpr uint64_t kServiceManagerObject = 0;

enum class ConnectionKind : uint32_t {
    kControl = 1,  // reference counting, both ways; its end is the peer's death
    kCall = 2,     // one synchronous call at a time, nested ones within it
    kOneway = 3,   // one-way calls, in order
};

struct Hello {
    static constexpr uint32_t kMagic = 0x31444e42;
    static constexpr size_t kNameSize = 56;

    uint32_t magic;
    ConnectionKind kind;
    char endpoint[kNameSize];  // name of the side that connects, filled up with zeros
};
static_assert(sizeof(Hello) == 64);

enum class MessageKind : uint32_t {
    kCall = 1,
    kReply = 2,
    kOneway = 3,
    kDecRef = 4,         // gives back `token` references to `object`
    kAcquire = 5,        // takes one reference to `object`
    kAcquireAnswer = 6,  // code 0: taken
    kAck = 7,            // the binders of the message with that token have been taken over
};

struct Header {
    static constexpr uint32_t kMagic = 0x3147534d;

    uint32_t magic;
    MessageKind kind;
    uint32_t code;   // transaction code; a status in replies and answers
    uint32_t flags;  // of the transaction
    uint32_t dataSize;
    uint32_t tableSize;
    uint32_t objectCount;
    uint32_t descriptorCount;
    uint64_t object;
    uint64_t token;     // names what a kAck answers (0: nothing to answer); a count in kDecRef
    uint64_t sequence;  // kOneway: its number, from 1; kDecRef: that of the last one before it
};
static_assert(sizeof(Header) == 56);

/** A binder or a descriptor of a parcel, as the table has it. Views into the table's bytes. */
struct ObjectRecord {
    enum class Kind : uint32_t { kBinder = 1, kDescriptor = 2 };
    Kind kind;
    uint32_t offset;
    uint64_t id = 0;
    std::string_view endpoint;    // whose object it is
    std::string_view descriptor;  // its class's
};

struct Message {
    Header header;
    std::span<const uint8_t> data;
    std::vector<ObjectRecord> objects;
};

/** True for `<pid>.<16 hexadecimal digits>`, the only names that are ever used as paths. */
bool isEndpointName(std::string_view name);
/** Of a valid name. */
pid_t pidOfEndpoint(std::string_view name);

/** The endpoint's name, or nothing when the bytes are not a valid hello. */
std::optional<std::string_view> parseHello(const Hello& hello);

/** Null when the header may stand on such a connection and its sizes are bounded, else a reason. */
const char* checkHeader(const Header& header, ConnectionKind connection);

/** The table's records, or nothing when it does not match the header exactly. */
std::optional<std::vector<ObjectRecord>> parseTable(const Header& header,
                                                    std::span<const uint8_t> table);

/** One whole message, or nothing when the bytes are not exactly that. Views into the bytes. */
std::optional<Message> parseMessage(std::span<const uint8_t> bytes, ConnectionKind connection);

void appendRecord(const ObjectRecord& record, std::vector<uint8_t>* table);

}  // namespace binder
