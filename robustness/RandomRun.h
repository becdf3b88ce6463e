#pragma once

#include <cstdio>
#include <cstdlib>

/// The settings of a random run, from the environment. Round n draws from a generator seeded with `seed + n`, so that
/// one round can be repeated alone.
struct RandomRun
{
    explicit RandomRun(unsigned int defaultRounds)
    {
        const char* const givenSeed = std::getenv("UTILSLIB_SEED");
        const char* const givenRounds = std::getenv("UTILSLIB_ROUNDS");
        seed = givenSeed != nullptr ? static_cast<unsigned int>(std::strtoul(givenSeed, nullptr, 10)) : 20'260'101;
        rounds =
            givenRounds != nullptr ? static_cast<unsigned int>(std::strtoul(givenRounds, nullptr, 10)) : defaultRounds;
        std::printf("UTILSLIB_SEED=%u UTILSLIB_ROUNDS=%u\n", seed, rounds);
    }

    unsigned int seed;
    unsigned int rounds;
};
