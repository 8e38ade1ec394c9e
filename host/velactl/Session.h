#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "host/codec/Operations.h"
#include "host/velactl/Report.h"

namespace velactl {

/** The words of a line; white space within a JSON string, array or object does not part them. */
std::vector<std::string> splitWords(const std::string& line);

/**
 * One client of the service. It connects at the first operation that needs it and keeps its
 * composer client, once made, until it ends. One thread.
 */
class Session {
  public:
    /** What came of an operation. */
    struct Result {
        Failure failure;
        Json answer;
        // Why the chip refused something of it, "EINVAL: display 9 is not there". From a host that
        // tells; otherwise only what an answered code says, "-22 (EINVAL)".
        std::vector<std::string> refusals;
    };

    /**
     * Runs an operation of "vela" or "composer". words: its name, then its arguments as JSON, or as
     * the names that numbers have. Wrong words touch no service.
     */
    Result run(const std::string& interface, const std::vector<std::string>& words);

    /** What run would say of the words alone. */
    static Failure check(const std::string& interface, const std::vector<std::string>& words);

    /** Whether the service's host tells why the chip refuses; known after the first operation. */
    [[nodiscard]] bool tellsRefusals() const { return mTakeRefusals != nullptr; }

  private:
    template <typename Interface>
    Result run(const std::vector<codec::CallableOperation<Interface>>& operations,
               Failure (Session::*need)(), const std::shared_ptr<Interface>& target,
               const std::vector<std::string>& words);
    /** Each makes its member ready. */
    Failure needVela();
    Failure needComposer();

    std::shared_ptr<codec::display::IVela> mVela;
    std::shared_ptr<codec::display::IVelaComposerClient> mComposer;
    std::function<std::vector<std::string>()> mTakeRefusals;
};

}  // namespace velactl
