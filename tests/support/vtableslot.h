#pragma once

#include <cstddef>
#include <cstring>

namespace testsupport {

// Index of a virtual function in its class's table, -1 for one that is not virtual: under the
// Itanium C++ ABI a pointer to a virtual member holds 1 + the function's byte offset in the table.
template <class F> long vtableSlot(F member)
{
    static_assert(sizeof(F) == 2 * sizeof(std::ptrdiff_t), "Itanium pointer to member");
    std::ptrdiff_t words[2];
    std::memcpy(words, &member, sizeof words);
    if ((words[0] & 1) == 0)
        return -1;
    return static_cast<long>((words[0] - 1) / std::ptrdiff_t(sizeof(void*)));
}

} // namespace testsupport
