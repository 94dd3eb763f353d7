#pragma once

#include <QByteArray>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace fuzz {

// Reads numbers and byte runs off the front of a fuzzer input; past the end it yields zeros,
// so every input decodes to something.
class FuzzInput
{
public:
    FuzzInput(const uint8_t* data, size_t size) : bytes(data), left(size) {}

    bool empty() const { return left == 0; }
    size_t remaining() const { return left; }

    uint8_t takeByte()
    {
        if (left == 0)
            return 0;
        --left;
        return *bytes++;
    }

    // Little-endian, like the numbers on the ccTalk line.
    template <class T> T take()
    {
        uint64_t value = 0;
        for (size_t i = 0; i < sizeof(T); ++i)
            value |= uint64_t(takeByte()) << (8 * i);
        return T(value);
    }

    QByteArray takeBytes(size_t count)
    {
        const size_t n = count < left ? count : left;
        QByteArray out(reinterpret_cast<const char*>(bytes), int(n));
        bytes += n;
        left -= n;
        return out;
    }

    QByteArray takeRest() { return takeBytes(left); }

private:
    const uint8_t* bytes;
    size_t left;
};

// A broken property is reported as a crash, so that the fuzzer keeps the input.
[[noreturn]] inline void fail(const char* what)
{
    std::fprintf(stderr, "property violated: %s\n", what);
    std::fflush(stderr);
    std::abort();
}

inline void check(bool condition, const char* what)
{
    if (!condition)
        fail(what);
}

} // namespace fuzz
