#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iomanip>
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

// The bytes of a request and a reply of each operation, and of each record, with what they mean,
// are kept in testdata/parcels. Each is built here from the table of operations, value by value,
// and has to be what the interface's code writes and reads, and what was kept.
// VELA_UPDATE_PARCELS=1 in the environment keeps what is built instead.

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
    for (const codec::RecordDescription& record : codec::recordDescriptions())
        records[record.name] = record.fields;
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

/** Parcels as text: each one's name, then a line for each of its values. */
struct Text {
    std::vector<std::string> lines;
    int parcels = 0;

    void add(const std::string& name, const std::vector<std::string>& values) {
        lines.push_back(name);
        for (const std::string& value : values)
            lines.push_back("  " + value);
        ++parcels;
    }

    /** Ends at the first difference, which is the value that has changed. */
    void compare(const std::string& name) const {
        const std::string file = std::string(PARCELS_FOLDER) + "/" + name;
        if (std::getenv("VELA_UPDATE_PARCELS") != nullptr) {
            std::ofstream out(file);
            for (const std::string& line : lines)
                out << line << "\n";
        }
        std::ifstream in(file);
        std::string parcel;
        std::string kept;
        for (const std::string& found : lines) {
            if (!found.starts_with(' ')) parcel = found;
            if (!std::getline(in, kept)) kept = "nothing";
            ASSERT_EQ(kept, found) << "The wire format differs from " << name << " in " << parcel;
        }
        EXPECT_FALSE(std::getline(in, kept)) << "There is no more " << kept;
        testing::Test::RecordProperty("golden_parcels", parcels);
    }
};

/** What passes between a proxy and an object that answers what it is told to. */
struct Exchange {
    const AParcel* answer;
    ndk::ScopedAParcel request{AParcel_create()};
    int32_t begin = 0;  // of the arguments, behind the interface's token
    transaction_code_t code = 0;
};

binder_status_t transact(AIBinder* binder, transaction_code_t code, const AParcel* in,
                         AParcel* out) {
    auto& exchange = *static_cast<Exchange*>(AIBinder_getUserData(binder));
    exchange.code = code;
    exchange.begin = AParcel_getDataPosition(in);
    (void)AParcel_appendFrom(in, exchange.request.get(), 0, AParcel_getDataSize(in));
    const int32_t size = AParcel_getDataSize(exchange.answer);
    return AParcel_appendFrom(exchange.answer, out, 0, size);
}

template <typename Proxy, typename Interface>
void addOperations(const std::vector<codec::CallableOperation<Interface>>& operations, Text* text) {
    static const AIBinder_Class* const clazz = AIBinder_Class_define(
            Interface::descriptor, [](void* data) { return data; }, [](void*) {}, transact);
    const auto find = [](const std::string& type, const Json&, std::string*) {
        return velactl::makeCallback(type, nullptr);
    };
    const auto nameObject = [](const std::string&, AIBinder*) { return Json{{"object", 1}}; };
    for (size_t i = 0; i < operations.size(); ++i) {
        const auto& operation = operations[i];
        SCOPED_TRACE(operation.signature());
        const std::string name = codec::findInterface(Interface::descriptor)->name + " " +
                                 std::to_string(i + 1) + " " + operation.name;
        Golden request;
        Golden reply;
        Json arguments = Json::array();
        for (const codec::Parameter& it : operation.parameters)
            arguments.push_back(request.write(it.type, it.name));
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
            EXPECT_EQ(exchange.code, i + 1);
            const AParcel* const sent = exchange.request.get();
            const auto written = request.explain(sent, exchange.begin);
            EXPECT_EQ(written, request.explain(request.parcel(), 0));
            Json read;
            AParcel_setDataPosition(sent, exchange.begin);
            EXPECT_TRUE(operation.readArguments(sent, nameObject, &read));
            EXPECT_EQ(read, arguments);
            if (i == 0) {
                const std::string token = bytesOf(sent, 0, exchange.begin, "");
                text->lines.insert(text->lines.end(), {"token", "  " + token});
            }
            text->add((isOneway ? "oneway " : "request ") + name, written);
        }
        if (!isOneway) text->add("reply " + name, reply.explain(reply.parcel(), 0));
    }
}

template <typename... Records>
void addRecords(Text* text) {
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
        const auto written = golden.explain(parcel.get(), 0);
        EXPECT_EQ(written, golden.explain(golden.parcel(), 0));
        text->add(name, written);
        Record read;
        AParcel_setDataPosition(parcel.get(), 0);
        ASSERT_EQ(read.readFromParcel(parcel.get()), STATUS_OK);
        EXPECT_EQ(codec::Codec<Record>::write(read), json) << name;
    };
    (add(std::type_identity<Records>()), ...);
    EXPECT_EQ(sizeof...(Records), fields.size());
}

TEST(GoldenParcels, OfTheMainService) {
    Text text;
    addOperations<display::BpVela>(codec::velaOperations(), &text);
    text.compare("vela.txt");
}

TEST(GoldenParcels, OfComposerClients) {
    Text text;
    addOperations<display::BpVelaComposerClient>(codec::composerOperations(), &text);
    text.compare("composer.txt");
}

TEST(GoldenParcels, OfCallbacks) {
    Text text;
    addOperations<display::BpVelaCallback>(codec::callbackOperations(), &text);
    addOperations<display::BpSoftVelaClient>(codec::softClientOperations(), &text);
    addOperations<display::BpVelaComposerCallback>(codec::composerCallbackOperations(), &text);
    text.compare("callbacks.txt");
}

TEST(GoldenParcels, OfRecords) {
    Text text;
    using namespace display;
    addRecords<BufferInfo, ColorMetaData, ContentSamples, DisplayConfigVariableInfo, HwcRect, Layer,
               LayerBuffer, LayerRect, LayerStack, LayerTransform, LutData, VelaFixedConfig>(&text);
    text.compare("records.txt");
}

}  // namespace
