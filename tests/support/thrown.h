#pragma once

#include "cashcontrol/cashcontrolexc.h"

#include <QString>

#include <optional>

namespace testsupport {

// The exception of type E the call threw, or none when it returned. An exception of
// another type passes through and fails the test.
template <class E = CashControlExc, class F> std::optional<E> thrown(F&& call)
{
    try {
        call();
    } catch (const E& e) {
        return e;
    }
    return std::nullopt;
}

// The text the call threw with an exception of type E, as the host reads it (what()
// as UTF-8), or a null string when the call returned.
template <class E = CashControlExc, class F> QString thrownText(F&& call)
{
    const std::optional<E> e = thrown<E>(call);
    return e ? QString::fromUtf8(e->what()) : QString();
}

} // namespace testsupport
