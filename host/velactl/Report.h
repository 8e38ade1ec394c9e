#pragma once

#include <cstdint>
#include <string>

#include <android/binder_auto_utils.h>

#include "host/codec/Codec.h"

namespace velactl {

using codec::Json;

enum ExitCode : int {
    kOk = 0,
    kErrorStatus = 1,
    kUsage = 2,
    kNoService = 3,
};

/** Why something did not work; kOk for what did. */
struct [[nodiscard]] Failure {
    ExitCode code = kOk;
    std::string text;  // for people; may hold what a file or a service said
    Json error;        // {"kind", "description"}, and "code" for an error status

    explicit operator bool() const { return code != kOk; }
};

Failure usageError(const std::string& text);
Failure noService(const std::string& text);
/** kNoService when the service died, else kErrorStatus; kOk for an ok status. */
Failure statusError(const std::string& what, const ndk::ScopedAStatus& status);
/** What a person's expectation, comparison or check did not find: kErrorStatus of that kind. */
Failure unmetError(const std::string& kind, const std::string& text);

/** Errors are to be JSON, and answers too where they would be text for people. */
void reportAsJson();
// What cannot be written to stdout ends the program with kErrorStatus, as a closed pipe does by its
// signal: whoever reads the answers must not take some for all.

/** Prints text on stdout and flushes it. Any thread; texts do not mix. */
void printText(const std::string& text);
/** Prints one line of JSON on stdout and flushes it. */
void printLine(const Json& json);
/** Prints as printLine() does, but a string for a terminal as it is. */
void printAnswer(const Json& json);
/** Prints a text for people as it is, or a line of JSON where that was asked for. */
void printResult(const std::string& text, const Json& json);
/** Prints the failure, if it is one, once and on stderr. Returns the exit code. */
int report(const Failure& failure);
int report(const std::string& where, const Failure& failure);

/** Prints a remark on stderr; where JSON was asked for `json`, one object under one name. */
void note(const std::string& where, const std::string& text, const Json& json);

/** Notes what the chip refused of an operation that is no error. */
void noteRefusal(const std::string& where, const std::string& operation, const std::string& reason);

/**
 * Writes the text to the file, "-" being stdout. A failure names file and reason, and leaves no
 * piece of a new file.
 */
Failure writeFile(const std::string& file, const std::string& text);

/**
 * Writes a file that takes the old one's place when it is whole: an interruption leaves the old
 * one. What is there and no file, such as a device, is not replaced but a failure.
 */
Failure replaceFile(const std::string& file, const std::string& text);

/**
 * Parses JSON that a person wrote; a failure says what is wrong with it, a key that an object has
 * twice included.
 */
Failure parseJson(const std::string& text, Json* out);

/** The text with control characters spelt out, so that a terminal does not obey them. */
std::string printable(const std::string& text);

/** Tells on a terminal how far something that takes long has come. One thread. */
class Progress {
  public:
    explicit Progress(std::string what);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void reached(size_t done, size_t of);

  private:
    const std::string mWhat;
    const int64_t mStart;
    bool mShown = false;
};

}  // namespace velactl
