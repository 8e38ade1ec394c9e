#include <unistd.h>

#include <string>

#include "host/codec/InterfaceCodec.h"
#include "host/velactl/Commands.h"
#include "host/velactl/Monitor.h"
#include "host/velactl/Report.h"

namespace velactl {
namespace {

/** Reads an option's JSON into *out. An option that was not given leaves it as it is. */
template <typename T>
Failure readOption(const CLI::Option* option, T* out) {
    if (option->empty()) return {};
    Json json;
    Failure failure = parseJson(option->as<std::string>(), &json);
    std::string error;
    if (!failure && codec::Codec<T>::read(json, out, &error)) return {};
    return usageError(option->get_name() + ": " + (failure ? failure.text : error));
}

}  // namespace

void addMonitorCommand(Commands* commands) {
    static MonitorOptions options{.id = getpid()};
    static CLI::Option* softValues = nullptr;
    static CLI::Option* configResult = nullptr;
    static CLI::Option* samples = nullptr;
    CLI::App* const command = commands->add(
            "monitor", "Print events until interrupted",
            "  velactl monitor --composer\n"
            "  velactl monitor --soft --soft-values '[1,2]'",
            [] {
                for (const Failure& failure : {readOption(softValues, &options.softValues),
                                               readOption(configResult, &options.configResult),
                                               readOption(samples, &options.samples)}) {
                    if (failure) return report(failure);
                }
                return report(monitor(options));
            });
    command->add_option("--id", options.id, "Register under this number, not the own pid")
            ->type_name("NUMBER");
    command->add_flag("--soft", options.soft, "Register a soft client too");
    command->add_flag("--composer", options.composer,
                      "Make a composer client, to which the composer events go from then on");
    command->add_option("--soft-result", options.softResult, "Answer of a soft set")
            ->type_name("NUMBER");
    command->add_option("--soft-error", options.softError, "Error that refuses a soft get")
            ->type_name("NUMBER");
    softValues =
            command->add_option("--soft-values", "Answer of a soft get")->type_name("[INT...]");
    configResult = command->add_option("--config-result", "Answer of a configuration change")
                           ->type_name("[INT...]");
    samples = command->add_option("--samples", "Answer of a sampling request, ContentSamples")
                      ->type_name("JSON");
}

}  // namespace velactl
