#pragma once

#include <iosfwd>
#include <string>

#include "client/text/OutputFormat.h"
#include "client/text/TextTable.h"
#include "host/database/DBReader.h"

/// Writes the rows of a statement as they come, in constant memory.
class QueryWriter {
public:
    /// `reader` has begun the statement and outlives the writer.
    QueryWriter(OutputFormat format, const DBReader& reader, std::ostream& out, bool bold);

    /// The row that the reader is at.
    void WriteRow();
    void End();

private:
    void AppendValue(std::string& out, uint32_t column) const;
    void WriteTableRow();
    void WriteJsonRow();
    void WriteCsvRow();

    const OutputFormat format_;
    const DBReader& reader_;
    std::ostream& out_;
    TextTable table_;
    uint64_t rows_ = 0;
};
