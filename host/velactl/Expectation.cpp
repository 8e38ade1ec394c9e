#include "host/velactl/Expectation.h"

#include "host/codec/Names.h"
#include "host/velactl/Compare.h"

namespace velactl {
namespace {

/** JSON, or an error's name for its negative number. */
Failure parseValue(const std::string& word, Json* out) {
    if (const int error = codec::errorNumber(word); error != 0) {
        *out = -error;
        return {};
    }
    return parseJson(word, out);
}

/** Whether the text is the pattern, whose stars stand for any text. */
bool isLike(const std::string& text, const std::string& pattern) {
    size_t at = 0;
    size_t star = std::string::npos;  // the last one in the pattern
    size_t resume = 0;                // where the text after it was tried
    size_t i = 0;
    while (at < text.size()) {
        if (i < pattern.size() && pattern[i] == '*') {
            star = i++;
            resume = at;
        } else if (i < pattern.size() && pattern[i] == text[at]) {
            ++i;
            ++at;
        } else if (star != std::string::npos) {
            i = star + 1;
            at = ++resume;
        } else {
            return false;
        }
    }
    return pattern.find_first_not_of('*', i) == std::string::npos;
}

Failure unmet(const std::string& expected, const Came& came) {
    return unmetError(
            "expectation",
            "expected " + expected + ", came " +
                    (came.status == "ok" ? "ok, " + came.answer.dump()
                                         : came.status["kind"].get<std::string>() + " error " +
                                                   came.status["code"].dump()));
}

}  // namespace

Failure Expectation::parse(const std::vector<std::string>& words, Expectation* out) {
    const bool two = words.size() == 2;
    const std::string first = words.size() > 1 ? words[1] : "";
    if (two && first == "ok") {
        out->mForm = Form::kOk;
        return {};
    }
    if (words.size() == 4 && first == "error") {
        out->mForm = Form::kError;
        out->mKind = words[2];
        if (parseValue(words[3], &out->mValue) || !out->mValue.is_number_integer()) {
            return usageError("not a code: " + words[3]);
        }
        return {};
    }
    if (words.size() == 3 && (first == "like" || first == "refusals")) {
        out->mForm = first == "like" ? Form::kLike : Form::kRefusals;
        if (auto failure = parseJson(words[2], &out->mValue)) return failure;
        const bool fits =
                first == "like" ? out->mValue.is_string() : out->mValue.is_number_unsigned();
        return fits ? Failure{}
                    : usageError(first + " takes a " + (first == "like" ? "string" : "number") +
                                 ", not " + words[2]);
    }
    if (!two) {
        return usageError(
                "usage: expect ok | error KIND CODE | JSON | like \"TEXT*\" | refusals N");
    }
    out->mForm = Form::kValue;
    return parseValue(first, &out->mValue);
}

Failure Expectation::check(const Came& came) const {
    switch (mForm) {
        case Form::kOk:
            return came.status == "ok" ? Failure{} : unmet("ok", came);
        case Form::kError: {
            const bool met = came.status.is_object() && came.status["kind"] == mKind &&
                             came.status["code"] == mValue;
            return met ? Failure{} : unmet(mKind + " error " + mValue.dump(), came);
        }
        case Form::kRefusals:
            if (!came.refusals) {
                return unmetError("expectation", "expected refusals " + mValue.dump() +
                                                         ", but who serves tells of none");
            }
            return *came.refusals == mValue
                           ? Failure{}
                           : unmetError("expectation", "expected refusals " + mValue.dump() +
                                                               ", came " +
                                                               std::to_string(*came.refusals));
        case Form::kLike: {
            const bool met = came.status == "ok" && came.answer.is_string() &&
                             isLike(came.answer.get<std::string>(), mValue.get<std::string>());
            return met ? Failure{} : unmet("like " + mValue.dump(), came);
        }
        case Form::kValue:
            break;
    }
    if (came.status != "ok") return unmet(mValue.dump(), came);
    const std::string at = differenceAt(mValue, came.answer, true, "answer");
    if (at.empty()) return {};
    return unmet(mValue.dump() + (at == "answer" ? "" : " (" + at + " differs)"), came);
}

}  // namespace velactl
