#include "store/startup/OffsetColumn.h"

#include <string_view>

#include "host/text/StringTokeniser.h"
#include "store/EventTable.h"

namespace {

constexpr const char* kOffsetColumn = "E_GMT_Offset";
constexpr const char* kColumnBehind = "E_DeviceId";

/// The name at the start of a column's declaration.
LumString NameOf(LumString declaration) {
    declaration.Trim();
    return declaration.GetSubstring(0, declaration.View().find_first_of(" \t\r\n)"));
}

}  // namespace

bool HasOffsetColumn(const LumString& creation) {
    return creation.FindFirst(kOffsetColumn) != LumString::kNotFound;
}

LumString WithOffsetColumn(const LumString& creation) {
    // The table's own name may hold the column's.
    const std::size_t columns = creation.FindFirst("(");
    const std::size_t at =
        columns != LumString::kNotFound ? creation.FindFirst(kColumnBehind, columns) : LumString::kNotFound;
    if (at == LumString::kNotFound) {
        return {};
    }
    LumString text = creation;
    text.Insert(at, "E_GMT_Offset INTEGER, ");
    return text;
}

LumString ColumnList(const LumString& creation) {
    const std::size_t columns = creation.FindFirst("(");
    if (columns == LumString::kNotFound) {
        return {};
    }
    StringTokeniser pieces(creation.GetSubstring(columns + 1, LumString::kWholeText), ",", 0);
    LumString list;
    for (LumString piece; pieces.GetNextToken(piece) != 0;) {
        list += list.IsEmpty() ? "" : ", ";
        list += NameOf(piece);
    }
    return list;
}

LumString SelectList(const LumString& columnList) {
    LumString list = columnList;
    static_cast<void>(
        list.ReplaceFirst(kOffsetColumn, "0 AS E_GMT_Offset"));  // a list without it stays as it is
    return list;
}

std::vector<LumString> OffsetStatements(const LumString& table, const LumString& transitional,
                                        const LumString& creation) {
    const LumString newCreation = WithOffsetColumn(creation);
    if (HasOffsetColumn(creation) || newCreation.IsEmpty()) {
        return {};
    }
    const LumString columns = ColumnList(newCreation);
    std::vector<LumString> statements(6);
    statements[0] = newCreation;
    static_cast<void>(statements[0].ReplaceFirst(table, transitional));  // else SQLite says that it is there
    statements[1].Printf("INSERT INTO %S (%S) SELECT %S FROM %S", transitional, columns, SelectList(columns),
                         table);
    statements[2].Printf("DROP TABLE %S", table);
    statements[3] = newCreation;
    statements[4].Printf("INSERT INTO %S SELECT * FROM %S", table, transitional);
    statements[5].Printf("DROP TABLE %S", transitional);
    return statements;
}
