#pragma once

#include <QtTest>

namespace testsupport {

// Declares a data table's columns in one line: columns<int, QString>("code", "text").
template <class... T, class... Name> void columns(const Name&... names)
{
    static_assert(sizeof...(T) == sizeof...(Name), "one name for each column type");
    (QTest::addColumn<T>(names), ...);
}

} // namespace testsupport
