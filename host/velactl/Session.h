#pragma once

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
    /**
     * Runs an operation of "vela" or "composer" and leaves its answer in *answer. words: its name,
     * then its arguments as JSON.
     */
    Failure run(const std::string& interface, const std::vector<std::string>& words, Json* answer);

  private:
    /** Each makes its member ready. */
    Failure needVela();
    Failure needComposer();

    std::shared_ptr<codec::display::IVela> mVela;
    std::shared_ptr<codec::display::IVelaComposerClient> mComposer;
};

}  // namespace velactl
