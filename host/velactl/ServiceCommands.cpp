#include "host/velactl/Commands.h"
#include "host/velactl/Platform.h"
#include "host/velactl/Report.h"
#include "host/velactl/Service.h"

namespace velactl {

void addServiceCommands(Commands* commands) {
    commands->add("info", "Print what is known of the service",
                  "  velactl info\n"
                  "  BINDER_RUNTIME_DIR=/tmp/mine velactl info",
                  [] { return report(info()); });
    commands->add("list", "Print every operation and record",
                  "  velactl list\n"
                  "  velactl list | grep Layer\n"
                  "  velactl --json list | jq '.composer[].name'",
                  [] { return report(list()); });
    commands->add("dump", "Print the service's dump",
                  "  velactl dump\n"
                  "  watch -n 1 velactl dump",
                  [] { return report(dump()); });

    static struct {
        int display = 0;
        std::string file;
    } options;
    CLI::App* const screenshotCommand =
            commands->add("screenshot", "Draw the frame that is shown",
                          "  velactl screenshot frame.svg\n"
                          "  velactl screenshot --display 3 second.svg",
                          [] { return report(screenshot(options.display, options.file)); });
    screenshotCommand->add_option("--display", options.display, "Which one; 0 is the primary")
            ->check(CLI::Range(0, 3))
            ->capture_default_str();
    screenshotCommand->add_option("FILE", options.file, "The SVG file to write; - is stdout")
            ->type_name("")
            ->required();
}

}  // namespace velactl
