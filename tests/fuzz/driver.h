#pragma once

#include <cstddef>
#include <cstdint>

/// What a fuzz target defines: carry out one input, whatever it is, and answer 0. A broken promise ends in
/// abort(). The name is the one that libFuzzer calls, so a target can be linked with either driver.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

/// For promises of a target: a false one ends the program, and the driver saves the input.
void fuzzCheck(bool holds);
