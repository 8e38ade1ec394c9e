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
 * on: a Header, the parcel's data, and a table. The table of a call or a reply has the binders and
 * descriptors that the data refers to, that of a control message the name of an endpoint.
 * Descriptors travel as ancillary data with the first byte of their message. Sender and receiver
 * run on the same machine and speak the same version, so integers have the machine's byte order.
 *
 * Everything here is a function of bytes and trusts none of them; parseMessage() is the entry for
 * whoever wants to feed it arbitrary ones.
 */
namespace binder {

/** Of the offset of one object. */
inline constexpr size_t kOffsetSize = sizeof(uint64_t);
/** Data and object offsets of one transaction or reply, as the kernel driver limits them. */
inline constexpr size_t kMaxTransaction = 1'040'384;
/** The same for one one-way call: half the buffer. */
inline constexpr size_t kMaxOneway = kMaxTransaction / 2;
/** Descriptors in one transaction: what one ancillary message takes. */
inline constexpr size_t kMaxDescriptors = 253;
/** The id of the object that a service manager's host serves. */
inline constexpr uint64_t kServiceManagerObject = 0;
/** Of an endpoint's name. */
inline constexpr size_t kMaxEndpointName = 32;

enum class ConnectionKind : uint32_t {
    kControl = 1,  // reference counting, both ways; its end is the peer's death
    kCall = 2,     // one synchronous call at a time, nested ones within it
    kOneway = 3,   // one-way calls, in order, and back what has been served of them
};

struct Hello {
    static constexpr uint32_t kMagic = 0x32444e42;

    uint32_t magic;
    ConnectionKind kind;
    char endpoint[kMaxEndpointName];  // name of the side that connects, filled up with zeros
};
static_assert(sizeof(Hello) == 40);

enum class MessageKind : uint32_t {
    kCall = 1,
    kReply = 2,
    kOneway = 3,
    kServed = 4,   // one-way calls of `count` bytes with `object` descriptors have been served
    kRelease = 5,  // gives back `count` references to `object`
    kGrant = 6,    // the named process is about to get one reference to `object` from the sender
    kRevoke = 7,   // it does not get it after all
    kClaim = 8,    // the sender has got one reference to `object` from the named process
};

struct Header {
    static constexpr uint32_t kMagic = 0x3247534d;

    uint32_t magic = kMagic;
    MessageKind kind;
    uint32_t code;   // transaction code; a status in replies
    uint32_t flags;  // of the transaction
    uint32_t dataSize;
    uint32_t tableSize;
    uint32_t objectCount;
    uint32_t descriptorCount;
    uint64_t object;
    uint64_t count;
};
static_assert(sizeof(Header) == 48);

/** A binder or a descriptor of a parcel, as the table has it. Views into the table's bytes. */
struct ObjectRecord {
    enum class Kind : uint32_t { kBinder = 1, kDescriptor = 2 };
    Kind kind;
    uint32_t offset;
    uint64_t id = 0;
    uint32_t stability = 0;
    std::string_view endpoint = {};  // whose object it is; empty for the sender's own
};

struct Message {
    Header header;
    std::span<const uint8_t> data;
    std::span<const uint8_t> table;
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

/** The name that a control message carries, or nothing when the table is not one. */
std::optional<std::string_view> parseName(std::span<const uint8_t> table);

/** One whole message, or nothing when the bytes are not exactly that. Views into the bytes. */
std::optional<Message> parseMessage(std::span<const uint8_t> bytes, ConnectionKind connection);

void appendRecord(const ObjectRecord& record, std::vector<uint8_t>* table);

}  // namespace binder
