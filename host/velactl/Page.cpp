#include "host/velactl/Page.h"

#include <filesystem>
#include <set>
#include <string>
#include <string_view>

#include "host/codec/Operations.h"
#include "host/velactl/Recording.h"
#include "host/velactl/Report.h"

namespace velactl {
namespace {

// The folder page/ as one file.
constexpr std::string_view kPage =
#include "Page.inc"
        ;
constexpr std::string_view kPlace = "<!-- recording -->\n";

/** "int present(long display)" by "composer present", of what the recording calls. */
Json signaturesOf(const Recording& recording) {
    Json signatures = Json::object();
    for (const RecordedCall& call : recording.calls) {
        if (call.definition == nullptr) continue;
        signatures[nameOf(call.target) + " " + call.operation] = call.definition->signature();
    }
    return signatures;
}

/**
 * JSON that stands within an element: a "<" is in one of its strings, and could end the element.
 */
std::string embedded(std::string_view json) {
    std::string safe;
    for (const char c : json) {
        if (c == '<') {
            safe += "\\u003c";
        } else {
            safe += c;
        }
    }
    return safe;
}

std::string pageOf(const Recording& recording) {
    const Json about{{"file", std::filesystem::path(recording.file).filename().string()},
                     {"signatures", signaturesOf(recording)}};
    const size_t place = kPage.find(kPlace);
    std::string page(kPage.substr(0, place));
    page += "<script type=\"application/json\" id=\"about\">" +
            embedded(about.dump(-1, ' ', false, Json::error_handler_t::replace)) +
            "</script>\n<script type=\"text/plain\" id=\"recording\">";
    for (const std::string& line : recording.text)
        page += embedded(line) + "\n";
    page += "</script>\n";
    return page.append(kPage.substr(place + kPlace.size()));
}

/** "1 client", "2 clients". */
std::string countText(size_t count, const std::string& what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

}  // namespace

Failure writePage(const std::string& file, std::string output) {
    Recording recording;
    if (auto failure = readRecording(file, &recording)) return failure;
    if (output.empty()) output = std::filesystem::path(file).replace_extension(".html");
    if (auto failure = writeFile(output, pageOf(recording))) return failure;
    if (output == "-") return {};
    size_t requests = 0;
    size_t events = 0;
    std::set<int64_t> clients;
    for (const RecordedCall& call : recording.calls) {
        requests += call.kind == RecordedCall::Kind::kRequest ? 1 : 0;
        events += call.kind == RecordedCall::Kind::kEvent ? 1 : 0;
        clients.insert(call.client);
    }
    printResult(output + ": " + countText(requests, "request") + " and " +
                        countText(events, "event") + " of " + countText(clients.size(), "client") +
                        "\n",
                {{"page", output},
                 {"requests", requests},
                 {"events", events},
                 {"clients", clients.size()}});
    return {};
}

}  // namespace velactl
