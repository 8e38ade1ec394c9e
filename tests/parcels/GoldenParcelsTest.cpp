#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <aidl/vendor/lumenforge/hardware/display/BpSoftVelaClient.h>
#include <aidl/vendor/lumenforge/hardware/display/BpVela.h>
#include <aidl/vendor/lumenforge/hardware/display/BpVelaCallback.h>
#include <aidl/vendor/lumenforge/hardware/display/BpVelaComposerCallback.h>
#include <aidl/vendor/lumenforge/hardware/display/BpVelaComposerClient.h>
#include <gtest/gtest.h>

#include "host/codec/Operations.h"
#include "host/velactl/Callbacks.h"

// The bytes of a request and a reply of each operation, and of each record, with what they mean, are
// kept in testdata/parcels. Each is built here from the table of operations, value by value, and has
// to be what the interface's code writes and reads, and what was kept. VELA_UPDATE_PARCELS=1 in the
// environment keeps what is built instead.

namespace {

namespace display = codec::display;
using codec::Json;

/** The bytes from `begin` to `end`; objects have none of their own, and are named. */
std::string bytesOf(const AParcel* parcel, int32_t begin, int32_t end, const char* object) {
    const ndk::ScopedAParcel part(AParcel_create());
    std::vector<uint8_t> bytes(static_cast<size_t>(end - begin));
    EXPECT_EQ(AParcel_appendFrom(parcel, part.get(), begin, end - begin), STATUS_OK);
    if (AParcel_marshal(part.get(), bytes.data(), 0, bytes.size()) != STATUS_OK) return object;
    std::ostringstream text;
    for (const uint8_t byte : bytes)
        text << std::hex << std::setw(2) << std::setfill('0') << int{byte};
    return text.str();
}

std::map<std::string, std::vector<codec::Parameter>> recordFields() {
    std::map<std::string, std::vector<codec::Parameter>> records;
    for (std::string text : codec::recordDescriptions()) {
        std::replace_if(
                text.begin(), text.end(), [](char c) { return c == '{' || c == '}' || c == ','; },
                ' ');
        std::istringstream words(text);
        std::string record;
        words >> record;
        for (codec::Parameter field; words >> field.type >> field.name;)
            records[record].push_back(field);
    }
    return records;
}

/** A parcel that is written value by value, each unlike the others, and noted down. */
class Golden {
  public:
    /** Returns the value as JSON. */
    Json write(const std::string& type, const std::string& name) {
        static const auto records = recordFields();
        const int32_t begin = AParcel_getDataPosition(parcel());
        if (type.ends_with("[]") && type != "byte[]") {
            writeWord(2, "length " + name);
            const std::string element = type.substr(0, type.size() - 2);
            return {write(element, name + "[0]"), write(element, name + "[1]")};
        }
        if (const auto record = records.find(type); record != records.end()) {
            writeWord(1, "present " + name);
            return writeRecord(record->second, name + ".");
        }
        Json value = writeLeaf(type, static_cast<int8_t>(++mCount));
        note(begin, type + " " + name + " = " + value.dump());
        return value;
    }

    Json writeRecord(const std::vector<codec::Parameter>& fields, const std::string& prefix) {
        const int32_t begin = AParcel_getDataPosition(parcel());
        writeWord(0, "size " + prefix);
        Json value = Json::object();
        for (const auto& [type, name] : fields)
            value[name] = write(type, prefix + name);
        const int32_t end = AParcel_getDataPosition(parcel());
        AParcel_setDataPosition(parcel(), begin);
        AParcel_writeInt32(parcel(), end - begin);
        AParcel_setDataPosition(parcel(), end);
        return value;
    }

    void writeWord(int32_t value, const std::string& what) {
        const int32_t begin = AParcel_getDataPosition(parcel());
        AParcel_writeInt32(parcel(), value);
        note(begin, what);
    }

    [[nodiscard]] AParcel* parcel() const { return mParcel.get(); }

    /** What another parcel holds where this one's values stand; `begin` is where they begin. */
    [[nodiscard]] std::vector<std::string> explain(const AParcel* other, int32_t begin) const {
        std::vector<std::string> lines;
        for (const Note& it : mNotes) {
            const std::string bytes = bytesOf(other, begin + it.begin, begin + it.end, "<object>");
            lines.push_back(std::to_string(it.begin) + " " + bytes + " " + it.what);
        }
        const int32_t size = AParcel_getDataSize(other) - begin;
        lines.push_back(std::to_string(size) + " end");
        return lines;
    }

  private:
    struct Note {
        int32_t begin;
        int32_t end;
        std::string what;
    };

    void note(int32_t begin, const std::string& what) {
        mNotes.push_back({begin, AParcel_getDataPosition(parcel()), what});
    }

    Json writeLeaf(const std::string& type, int8_t n) {
        if (type == "int" || type == "VendorConfig") return put(AParcel_writeInt32, 0x1a2b3c00 + n);
        if (type == "long") return put(AParcel_writeInt64, 0x1a2b3c4d5e6f7000 + n);
        if (type == "float") return put(AParcel_writeFloat, 0.5f + n);
        if (type == "boolean") return put(AParcel_writeBool, true);
        if (type == "byte") return put(AParcel_writeByte, static_cast<int8_t>(-n));
        if (type == "byte[]") {
            const std::vector<uint8_t> bytes{0xf1, 0xf2, static_cast<uint8_t>(n)};
            (void)ndk::AParcel_writeVector(parcel(), bytes);
            return bytes;
        }
        if (type == "String") {
            const std::string text = "\u00e9\U0001f600" + std::to_string(n);
            (void)ndk::AParcel_writeString(parcel(), text);
            return text;
        }
        if (type == "ParcelFileDescriptor") {
            std::string error;
            const ndk::ScopedFileDescriptor fd(codec::openDescriptor({{"size", n}}, &error));
            (void)AParcel_writeParcelFileDescriptor(parcel(), fd.get());
            return {{"kind", "file"}, {"size", n}};
        }
        const auto object = velactl::makeCallback("IVelaCallback", nullptr);
        (void)AParcel_writeStrongBinder(parcel(), object->asBinder().get());
        return {{"object", 1}};
    }

    template <typename T>
    Json put(binder_status_t (*writer)(AParcel*, T), std::type_identity_t<T> value) {
        (void)writer(parcel(), value);
        return value;
    }

    ndk::ScopedAParcel mParcel{AParcel_create()};
    std::vector<Note> mNotes;
    int mCount = 0;
};

using Entries = std::vector<std::pair<std::string, std::vector<std::string>>>;

/** What stands in the file, or is to stand there, is each entry's name and its lines. */
void compare(const std::string& name, const Entries& entries) {
    const std::filesystem::path file = std::filesystem::path(PARCELS_FOLDER) / name;
    if (std::getenv("VELA_UPDATE_PARCELS") != nullptr) {
        std::ofstream out(file);
        out << "# Of each parcel: offset, bytes, and what they are. See golden_parcels_test.\n";
        for (const auto& [entry, lines] : entries) {
            out << "\n" << entry << "\n";
            for (const std::string& line : lines)
                out << "  " << line << "\n";
        }
    }
    std::ifstream in(file);
    std::map<std::string, std::vector<std::string>> kept;
    std::string entry;
    for (std::string line; std::getline(in, line);) {
        if (line.starts_with("  ")) {
            kept[entry].push_back(line.substr(2));
        } else if (!line.empty() && line[0] != '#') {
            kept[entry = line];
        }
    }
    EXPECT_EQ(kept.size(), entries.size()) << file << " has parcels that are no more";
    for (const auto& [what, lines] : entries) {
        const auto& was = kept[what];
        const size_t common = std::min(lines.size(), was.size());
        const auto at = std::mismatch(lines.begin(), lines.begin() + static_cast<ptrdiff_t>(common),
                                      was.begin());
        if (lines == was) continue;
        ADD_FAILURE() << file << ": the wire format of " << what << " differs at\n  kept:  "
                      << (at.second == was.end() ? "nothing" : *at.second) << "\n  found: "
                      << (at.first == lines.end() ? "nothing" : *at.first);
    }
    testing::Test::RecordProperty("golden_parcels", std::to_string(entries.size()));
}

/** What passes between a proxy and an object that answers what it is told to. */
struct Exchange {
    const AParcel* answer;
    ndk::ScopedAParcel request{AParcel_create()};
    int32_t begin = 0;  // of the arguments, behind the interface's token
};

binder_status_t transact(AIBinder* binder, transaction_code_t, const AParcel* in, AParcel* out) {
    auto& exchange = *static_cast<Exchange*>(AIBinder_getUserData(binder));
    exchange.begin = AParcel_getDataPosition(in);
    (void)AParcel_appendFrom(in, exchange.request.get(), 0, AParcel_getDataSize(in));
    const int32_t size = AParcel_getDataSize(exchange.answer);
    return AParcel_appendFrom(exchange.answer, out, 0, size);
}

template <typename Proxy, typename Interface>
void addOperations(const std::vector<codec::CallableOperation<Interface>>& operations,
                   Entries* entries) {
    static const AIBinder_Class* const clazz = AIBinder_Class_define(
            Interface::descriptor, [](void* data) { return data; }, [](void*) {}, transact);
    const auto find = [](const std::string& type, const Json&, std::string*) {
        return velactl::makeCallback(type, nullptr);
    };
    const auto nameObject = [](const std::string&, AIBinder*) { return Json{{"object", 1}}; };
    for (size_t i = 0; i < operations.size(); ++i) {
        const auto& operation = operations[i];
        SCOPED_TRACE(operation.signature());
        Golden request;
        Golden reply;
        Json arguments = Json::array();
        for (const auto& [type, name] : operation.parameters)
            arguments.push_back(request.write(type, name));
        reply.writeWord(EX_NONE, "status");
        const bool isVoid = operation.result == "void";
        const Json result = isVoid ? Json() : reply.write(operation.result, "result");
        const Golden nothing;
        bool isOneway = false;
        for (const AParcel* answer : {nothing.parcel(), reply.parcel()}) {
            Exchange exchange{.answer = answer};
            const auto proxy = ndk::SharedRefBase::make<Proxy>(
                    ndk::SpAIBinder(AIBinder_new(clazz, &exchange)));
            const auto outcome = operation.call(*proxy, arguments, find);
            ASSERT_EQ(outcome.usageError, "");
            if (answer == nothing.parcel()) {
                isOneway = outcome.status.isOk();
                continue;
            }
            EXPECT_TRUE(outcome.status.isOk()) << outcome.status;
            EXPECT_TRUE(outcome.value == result || outcome.value.contains("interface"));
            const auto written = request.explain(exchange.request.get(), exchange.begin);
            EXPECT_EQ(written, request.explain(request.parcel(), 0));
            Json read;
            AParcel_setDataPosition(exchange.request.get(), exchange.begin);
            EXPECT_TRUE(operation.readArguments(exchange.request.get(), nameObject, &read));
            EXPECT_EQ(read, arguments);
            const std::string name = Interface::descriptor;
            const std::string number = std::to_string(i + 1) + " " + operation.name;
            if (i == 0) {
                entries->push_back(
                        {"token " + name,
                         {bytesOf(exchange.request.get(), 0, exchange.begin, "") + " token"}});
            }
            const std::string kind = codec::findInterface(name)->name + " ";
            entries->push_back({(isOneway ? "oneway " : "request ") + kind + number, written});
        }
        if (isOneway) continue;
        const std::string kind = codec::findInterface(Interface::descriptor)->name + " ";
        entries->push_back({"reply " + kind + std::to_string(i + 1) + " " + operation.name,
                            reply.explain(reply.parcel(), 0)});
    }
}

template <typename... Records>
void addRecords(Entries* entries) {
    const auto fields = recordFields();
    const auto add = [&]<typename Record>(std::type_identity<Record>) {
        const std::string name = codec::shortName(Record::descriptor);
        Golden golden;
        const Json json = golden.writeRecord(fields.at(name), "");
        Record record;
        std::string error;
        ASSERT_TRUE(codec::Codec<Record>::read(json, &record, &error)) << name << ": " << error;
        const ndk::ScopedAParcel parcel(AParcel_create());
        ASSERT_EQ(record.writeToParcel(parcel.get()), STATUS_OK);
        entries->push_back({name, golden.explain(parcel.get(), 0)});
        EXPECT_EQ(entries->back().second, golden.explain(golden.parcel(), 0));
        Record read;
        AParcel_setDataPosition(parcel.get(), 0);
        ASSERT_EQ(read.readFromParcel(parcel.get()), STATUS_OK);
        EXPECT_EQ(codec::Codec<Record>::write(read), json) << name;
    };
    (add(std::type_identity<Records>()), ...);
    EXPECT_EQ(entries->size(), fields.size());
}

TEST(GoldenParcels, OfTheMainService) {
    Entries entries;
    addOperations<display::BpVela>(codec::velaOperations(), &entries);
    compare("vela.txt", entries);
}

TEST(GoldenParcels, OfComposerClients) {
    Entries entries;
    addOperations<display::BpVelaComposerClient>(codec::composerOperations(), &entries);
    compare("composer.txt", entries);
}

TEST(GoldenParcels, OfCallbacks) {
    Entries entries;
    addOperations<display::BpVelaCallback>(codec::callbackOperations(), &entries);
    addOperations<display::BpSoftVelaClient>(codec::softClientOperations(), &entries);
    addOperations<display::BpVelaComposerCallback>(codec::composerCallbackOperations(), &entries);
    compare("callbacks.txt", entries);
}

TEST(GoldenParcels, OfRecords) {
    Entries entries;
    using namespace display;
    addRecords<BufferInfo, ColorMetaData, ContentSamples, DisplayConfigVariableInfo, HwcRect, Layer,
               LayerBuffer, LayerRect, LayerStack, LayerTransform, LutData, VelaFixedConfig>(
            &entries);
    compare("records.txt", entries);
}

}  // namespace
