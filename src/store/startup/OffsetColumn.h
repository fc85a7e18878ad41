#pragma once

#include <vector>

#include "host/text/LumString.h"

/// The SQL that gives an event table of an earlier layout the column E_GMT_Offset. These routines only make
/// texts. The creation texts are read from a database and may be anything; from a strange one comes at worst
/// a statement that SQLite refuses.

/// The creation text of the table with the new column, which comes right before E_DeviceId. Empty where no
/// such column is found.
[[nodiscard]] LumString WithOffsetColumn(const LumString& creation);

/// The names of the columns in a creation text, joined by ", ".
[[nodiscard]] LumString ColumnList(const LumString& creation);

/// The same list as the columns of a SELECT from the old table; the new column is 0 in every row.
[[nodiscard]] LumString SelectList(const LumString& columnList);

/// The statements that make `table`, created by the text `creation`, anew with the column and fill it from
/// the old one, by way of the table `transitional`. None where the table has the column already.
[[nodiscard]] std::vector<LumString> OffsetStatements(const LumString& table, const LumString& transitional,
                                                      const LumString& creation);

/// True where the creation text names the column E_GMT_Offset.
[[nodiscard]] bool HasOffsetColumn(const LumString& creation);
