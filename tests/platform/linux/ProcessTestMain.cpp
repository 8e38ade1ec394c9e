#include "tests/support/ProcessHarness.h"

int main(int argc, char** argv) {
    return harness::run(argc, argv);
}
