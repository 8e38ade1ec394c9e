#include "host/velactl/SessionReport.h"

#include <algorithm>

namespace velactl {
namespace {

std::string escaped(const std::string& text) {
    std::string out;
    for (const char c : printable(text)) {
        if (c == '&') {
            out += "&amp;";
        } else if (c == '<') {
            out += "&lt;";
        } else if (c == '"') {
            out += "&quot;";
        } else if (c == '\n') {
            out += "&#10;";
        } else {
            out += c;
        }
    }
    return out;
}

std::string attribute(const std::string& name, const std::string& value) {
    return " " + name + "=\"" + escaped(value) + "\"";
}

}  // namespace

void SessionReport::checked(size_t line, const std::string& text, const Failure& failure) {
    ++mChecks;
    if (failure) ++mUnmet;
    Case& it = mCases[line];
    it.text = text;
    if (it.failure.empty()) it.failure = failure.text;
}

void SessionReport::failed(size_t line, const std::string& text, const Failure& failure) {
    ++mErrors;
    Case& it = mCases[line];
    it.text = text;
    if (it.failure.empty()) it.failure = failure.text;
}

std::string SessionReport::summary() const {
    return mName + ": " + std::to_string(mAnswers) + " answers, " +
           std::to_string(mChecks - mUnmet) + " of " + std::to_string(mChecks) +
           " expectations met, " + std::to_string(mErrors) + " errors, " +
           std::to_string(mRefusals) + " refusals";
}

Json SessionReport::summaryJson() const {
    return {{"session", mName},        {"answers", mAnswers}, {"expectations", mChecks},
            {"met", mChecks - mUnmet}, {"errors", mErrors},   {"refusals", mRefusals}};
}

std::string SessionReport::junit() const {
    const auto failures = std::count_if(mCases.begin(), mCases.end(),
                                        [](const auto& it) { return !it.second.failure.empty(); });
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - mStart;
    std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuite" +
                       attribute("name", mName) +
                       attribute("tests", std::to_string(mCases.size())) +
                       attribute("failures", std::to_string(failures)) +
                       attribute("time", std::to_string(time.count())) + ">\n";
    for (const auto& [line, it] : mCases) {
        text += "  <testcase" + attribute("classname", mName) +
                attribute("name", std::to_string(line) + ": " + it.text);
        text += it.failure.empty()
                        ? "/>\n"
                        : "><failure" + attribute("message", it.failure) + "/></testcase>\n";
    }
    return text + "</testsuite>\n";
}

}  // namespace velactl
