#pragma once

#include <QTest>

#include <tuple>

// A data-driven test's columns declared, and its current row read, in one statement each:
//     DataRows::addColumns<QString, bool>("text", "valid");                 // in foo_data()
//     auto [text, valid] = DataRows::fetch<QString, bool>("text", "valid"); // in foo()
// As with QTest::addColumn and QFETCH, a name that is no column, or a type that is not the
// column's, stops the test with a message.
namespace DataRows {

template <typename... Types, typename... Names> void addColumns(Names... names)
{
    static_assert(sizeof...(Types) == sizeof...(Names), "one type for each column");
    (QTest::addColumn<Types>(names), ...);
}

template <typename... Types, typename... Names> std::tuple<Types...> fetch(Names... names)
{
    static_assert(sizeof...(Types) == sizeof...(Names), "one type for each column");
    return {*static_cast<Types *>(QTest::qData(names, qMetaTypeId<Types>()))...};
}

} // namespace DataRows
