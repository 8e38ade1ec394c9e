#pragma once

#include <span>
#include <string>
#include <vector>

#include "host/codec/Operation.h"
#include "host/velactl/Report.h"

namespace velactl {

/** The names of an argument's numbers, by number; empty where they have none. */
using NumberNames = std::span<const char* const>;

struct DescribedArgument {
    const char* meaning;  // what it is, and what the simulated chip takes
    NumberNames names = {};
};

/** What is to be known of an operation beyond its signature. */
struct Description {
    const char* operation;
    const char* what;                          // one sentence
    std::vector<DescribedArgument> arguments;  // in declared order
    const char* library;                       // how it reaches the service library
    const char* without;                       // the answer where that library is absent
    const char* status;                        // how the library's result comes back
    const char* example;                       // arguments, as words of a session
};

/** All operations of "vela" or "composer" that such an object serves, in their order. */
const std::vector<Description>& descriptions(const std::string& interface);

/** Null where there is none. */
const Description* findDescription(const std::string& interface, const std::string& operation);

/** The words that stand for an argument's numbers, by number. */
std::vector<std::string> numberNames(const DescribedArgument& argument);

/** The number that a word names, "solid-color" or "solid color" for 3; null when it names none. */
Json namedNumber(const DescribedArgument& argument, const std::string& word);

/** What is wrong with a word that is no number of the argument, which has names for them. */
Failure unnamedNumber(const DescribedArgument& argument, const std::string& word);

/** Prints what is known of the operation, or of all of them when the name is empty. */
Failure describe(const std::string& operation);

/** Prints the tables and entries of an interface for docs/operations.md. */
Failure describeAsMarkdown(const std::string& interface);

/** " (did you mean X?)", X being the candidate that is nearest to the word; empty for none near. */
std::string suggestion(const std::string& word, const std::vector<std::string>& candidates);

}  // namespace velactl
