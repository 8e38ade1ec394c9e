#include "host/velactl/Watch.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include <aidl/velahost/IHost.h>

#include "host/codec/Operations.h"
#include "host/velactl/Descriptions.h"
#include "host/velactl/Platform.h"

namespace velactl {
namespace {

struct Filter {
    std::string client;
    std::string operation;
    bool refusals = false;
};

std::string operationOf(const Json& line) {
    return line.value("operation", line.value("event", ""));
}

/** The chip refused something, or an error status or a negative number was answered. */
bool isRefusal(const Json& line) {
    const Json answer = line.value("answer", Json());
    return line.contains("refused") || line.value("status", Json("ok")) != "ok" ||
           (answer.is_number() && answer < 0);
}

/** Not what was there before, and not whole recordings' first and last lines. */
bool isShown(const Json& line, const Filter& filter) {
    if (line.contains("lost")) return true;
    if (!line.contains("n") || line.contains("earlier")) return false;
    const std::string process = line.value("process", "");
    return process.find(filter.client) != std::string::npos &&
           (filter.operation.empty() || operationOf(line) == filter.operation) &&
           (!filter.refusals || isRefusal(line));
}

std::string textOf(const Json& line) {
    if (line.contains("lost")) return "(" + line["lost"].dump() + " lines lost)";
    char time[32];
    std::snprintf(time, sizeof(time), "%.6f", line.value("time", 0.0) / 1e6);
    std::string text = time + ("  " + line.value("process", "")) + "  ";
    if (line.contains("gone")) return text + line.value("gone", "") + " is gone";
    const Json status = line.value("status", Json());
    text += line.value("interface", "") + " " + operationOf(line) + " " +
            line.value("arguments", Json()).dump() + " -> ";
    text += status == "ok"
                    ? line.value("answer", Json()).dump()
                    : status.value("kind", "") + " error " + status.value("code", Json()).dump();
    for (const Json& why : line.value("refused", Json::array()))
        text += "  (" + why.get<std::string>() + ")";
    return text;
}

/** Prints the line, if it is to be shown; false when the host says that it ends. */
bool print(const std::string& text, const Filter& filter) {
    const Json line = Json::parse(text, nullptr, false);
    if (!line.is_object() || line.contains("end")) return false;
    if (line.contains("recording")) printResult("watching; Ctrl-C ends it\n", {{"watching", true}});
    if (isShown(line, filter)) printResult(textOf(line) + "\n", line);
    return true;
}

/** Prints the lines that come until they end, which is a failure without the last one. */
Failure printAll(int pipe, const sigset_t& whileWaiting, const Filter& filter) {
    std::string pending;
    std::array<char, 65536> chunk{};
    while (true) {
        std::array<pollfd, 2> fds{pollfd{.fd = pipe, .events = POLLIN, .revents = 0},
                                  pollfd{.fd = STDOUT_FILENO, .events = 0, .revents = 0}};
        if (ppoll(fds.data(), fds.size(), nullptr, &whileWaiting) < 0) return {};  // a signal came
        if ((fds[1].revents & (POLLERR | POLLHUP)) != 0) return {};  // nobody reads this
        const ssize_t count = read(pipe, chunk.data(), chunk.size());
        if (count <= 0) return noService("velahost died");
        pending.append(chunk.data(), static_cast<size_t>(count));
        size_t begin = 0;
        for (size_t end = 0; (end = pending.find('\n', begin)) != std::string::npos;
             begin = end + 1) {
            if (!print(pending.substr(begin, end - begin), filter)) return {};
        }
        pending.erase(0, begin);
    }
}

Failure checkOperation(const std::string& name) {
    std::vector<std::string> names;
    for (const auto& [descriptor, interface] : codec::interfaces()) {
        for (const codec::Operation* operation : interface.operations)
            names.push_back(operation->name);
    }
    if (name.empty() || std::find(names.begin(), names.end(), name) != names.end()) return {};
    return usageError("no operation or event " + name + suggestion(name, names));
}

Failure watch(const Filter& filter) {
    if (auto failure = checkOperation(filter.operation)) return failure;
    // Before any other thread runs: they are taken while this one waits, and nowhere else.
    sigset_t stopSignals;
    sigset_t before;
    sigemptyset(&stopSignals);
    for (const int signal : {SIGINT, SIGTERM}) {
        sigaddset(&stopSignals, signal);
        (void)::signal(signal, [](int) {});
    }
    pthread_sigmask(SIG_BLOCK, &stopSignals, &before);
    std::shared_ptr<aidl::velahost::IHost> host;
    if (auto failure = connectHost(&host)) return failure;
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) return usageError("no pipe can be made");
    const ndk::ScopedFileDescriptor reader(ends[0]);
    {
        const ndk::ScopedFileDescriptor writer(ends[1]);
        // As large as the system allows; what it allows is enough.
        (void)fcntl(writer.get(), F_SETPIPE_SZ, 1 << 20);
        if (auto failure = statusError("watch", host->watch(writer))) return failure;
    }
    return printAll(reader.get(), before, filter);
}

}  // namespace

void addWatchCommand(CLI::App* app, std::optional<int>* done) {
    const auto filter = std::make_shared<Filter>();
    CLI::App* command = app->add_subcommand("watch", "Print what all clients of velahost do");
    command->footer(
            "Examples:\n"
            "  velactl watch --refusals\n"
            "  velactl watch --client compositor --operation present\n"
            "  velactl --json watch | jq .operation\n");
    command->add_option("--client", filter->client, "Only of processes with this name or number");
    command->add_option("--operation", filter->operation, "Only this operation or event");
    command->add_flag("--refusals", filter->refusals,
                      "Only what was refused, or answered with an error or a negative number");
    command->callback([filter, done] { *done = report(watch(*filter)); });
}

}  // namespace velactl
