#pragma once

#include <vector>

#include "host/text/LumString.h"

/// How an event table of an earlier layout gains the column E_GMT_Offset, as texts: nothing is run in here.
/// What comes in was read from a database and may be anything; the worst that can come of it is a text that
/// SQLite refuses.

/// The creation text of the table with the new column, which comes right before E_DeviceId. Empty where no
/// such column is found.
[[nodiscard]] LumString WithOffsetColumn(const LumString& creation);

/// The names of the columns in a creation text, joined by ", ".
[[nodiscard]] LumString ColumnList(const LumString& creation);

/// The same list as a selection from the table of before: the new column is 0 in every row.
[[nodiscard]] LumString SelectList(const LumString& columnList);

/// The statements that make `table`, created by the text `creation`, anew with the column and fill it from
/// the old one. None where the table has the column already.
[[nodiscard]] std::vector<LumString> OffsetStatements(const LumString& table, const LumString& creation);

/// True where the creation text names the column E_GMT_Offset.
[[nodiscard]] bool HasOffsetColumn(const LumString& creation);
