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
 * A connection carries messages: a Header, the parcel's data, and a table with a record for each
 * binder and descriptor that the data refers to, and for each record a descriptor as ancillary data
 * of the message's first byte: a binder's is an end of its object's pipe, which holds the object.
 * The first message tells what the connection is for; who the other side is, the socket tells.
 * Sender and receiver run on the same machine and speak the same version, so integers have the
 * machine's byte order.
 *
 * Everything here is a function of bytes and trusts none of them; parseMessage() is the entry for
 * whoever wants to feed it arbitrary ones.
 */
namespace binder {

/** Of the offset of one object. */
inline constexpr size_t kOffsetSize = sizeof(uint64_t);
/** Data and object offsets of one transaction or reply, as the kernel driver limits them. */
inline constexpr size_t kMaxTransaction = 1'040'384;
/** Data and object offsets of one one-way call: half of that, as the driver limits them. */
inline constexpr size_t kMaxOneway = kMaxTransaction / 2;
/** Descriptors in one message: what one ancillary message takes. */
inline constexpr size_t kMaxDescriptors = 253;
/** Calls that one thread serves within each other. */
inline constexpr size_t kMaxNesting = 128;
/** The id of the object that a service manager's host serves. */
inline constexpr uint64_t kServiceManagerObject = 0;
/** Of an endpoint's name. */
inline constexpr size_t kMaxEndpointName = 32;

enum class ConnectionKind {
    kCall,    // one synchronous call at a time, nested ones within it
    kOneway,  // one-way calls, in order, and back what has been served of them
};

enum class MessageKind : uint32_t {
    kCall = 1,  // the table ends with `count` processes that wait for the caller further up
    kReply = 2,
    kLine = 3,  // brings a connection for the thread that waits in process `object` further up
    kHold = 4,  // brings an end of `object`, of which one-way calls follow
    kOneway = 5,
    kServed = 6,  // one-way calls of `count` bytes with `object` descriptors have been served
    kDone = 7,    // `object` need not be held any more
};

struct Header {
    static constexpr uint32_t kMagic = 0x3347534d;

    uint32_t magic = kMagic;
    MessageKind kind;
    uint32_t code;  // transaction code; a status in replies
    uint32_t count;
    uint32_t dataSize;
    uint32_t objectCount;
    uint64_t object;
};
static_assert(sizeof(Header) == 32);

/** A binder or a descriptor of a parcel, as the table has it. */
struct ObjectRecord {
    enum class Kind : uint32_t { kBinder = 1, kDescriptor = 2 };
    Kind kind;
    uint32_t offset;
    uint64_t id;                      // the binder's number
    char endpoint[kMaxEndpointName];  // whose object it is, filled up with zeros
};
static_assert(sizeof(ObjectRecord) == 48);

struct Table {
    std::vector<ObjectRecord> objects;
    std::vector<pid_t> waiting;
};

struct Message {
    Header header;
    std::span<const uint8_t> data;
    Table table;
};

/** True for `<pid>.<16 hexadecimal digits>`, the only names that are ever used as paths. */
bool isEndpointName(std::string_view name);
/** Of a valid name. */
pid_t pidOfEndpoint(std::string_view name);
/** The name in a binder's record. */
std::string_view endpointOf(const ObjectRecord& record);

/** Which connection a message begins; nothing when none begins with it. */
std::optional<ConnectionKind> kindBegunBy(MessageKind kind);

/** Null when the header may stand on such a connection and its sizes are bounded, else a reason. */
const char* checkHeader(const Header& header, ConnectionKind connection);

// Of a header that has been checked.
size_t tableSizeOf(const Header& header);
size_t descriptorsOf(const Header& header);

/** What the table says, or nothing when it does not match the header exactly. */
std::optional<Table> parseTable(const Header& header, std::span<const uint8_t> table);

/** One whole message, or nothing when the bytes are not exactly that. Views into the bytes. */
std::optional<Message> parseMessage(std::span<const uint8_t> bytes, ConnectionKind connection);

/** The table's bytes. */
std::vector<uint8_t> bytesOf(const Table& table);

}  // namespace binder
