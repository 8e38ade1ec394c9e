#pragma once

#include <sys/types.h>

#include <fstream>
#include <string>

/** "velactl (1234)", as far as the name can be told. */
inline std::string processName(pid_t pid) {
    std::string name;
    std::getline(std::ifstream("/proc/" + std::to_string(pid) + "/comm"), name);
    return (name.empty() ? "process" : name) + " (" + std::to_string(pid) + ")";
}
