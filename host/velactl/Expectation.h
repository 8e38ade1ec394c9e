#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "host/velactl/Report.h"

namespace velactl {

/** What the last operation of a session came to. */
struct Came {
    Json status;  // "ok", or the error's {"kind", "code", ...}
    Json answer;
    std::optional<size_t> refusals;  // so far; none where nobody tells of them
};

/** A line "expect ..." of a session; Script.h lists its forms. */
class Expectation {
  public:
    static Failure parse(const std::vector<std::string>& words, Expectation* out);

    /** kErrorStatus, with what came instead, when it is not met. */
    [[nodiscard]] Failure check(const Came& came) const;

    /** It is of the answer itself, an error among them, so that a refusal of it is no news. */
    [[nodiscard]] bool isOfAnswer() const {
        return mForm == Form::kError || mForm == Form::kValue || mForm == Form::kLike;
    }
    /** It is of the refusals so far, which are counted anew from then on. */
    [[nodiscard]] bool isOfRefusals() const { return mForm == Form::kRefusals; }

  private:
    enum class Form { kOk, kError, kValue, kLike, kRefusals };

    Form mForm = Form::kOk;
    std::string mKind;
    Json mValue;  // or an error's code, or the number of refusals
};

}  // namespace velactl
