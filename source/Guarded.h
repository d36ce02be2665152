// Failures are results, also when memory is used up.
#ifndef QUORVEL_GUARDED_H
#define QUORVEL_GUARDED_H

#include <exception>

constexpr int RC_COMMAND_FAILED = 0x000000FF;

// Runs a call; an exception becomes a result.
template<class FCall>
int Guarded(FCall fnCall, int nFailure = RC_COMMAND_FAILED)
{
    try {
        return fnCall();
    } catch (const std::exception&) {
        return nFailure;
    }
}

#endif
