#pragma once

#include <cstdint>

#include <sys/random.h>

namespace binder {

/** One that nobody guesses; never 0. */
inline uint64_t randomNumber() {
    uint64_t number = 0;
    while (number == 0) {
        if (getrandom(&number, sizeof(number), 0) != sizeof(number)) number = 0;
    }
    return number;
}

}  // namespace binder
