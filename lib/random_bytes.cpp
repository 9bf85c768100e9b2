#include "random_bytes.h"

#include <sys/random.h>

#include <cerrno>

bool fillRandom(uint8_t* buffer, size_t length, RandomSource source) {
    if (!source) source = &getrandom;
    size_t filled = 0;
    while (filled < length) {
        ssize_t const n = source(buffer + filled, length - filled, 0);
        if (n < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        if (n == 0) return false;
        filled += static_cast<size_t>(n);
    }
    return true;
}
