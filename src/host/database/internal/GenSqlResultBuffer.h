#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "host/database/Database.h"

struct sqlite3_stmt;

/// The rows of one statement, copied into blocks of memory. A row lies whole in one block, as one cell after
/// the other; a cell is a byte that says what it is and how long, and then as many bytes as its value takes.
/// The rows grow from the start of a block, the places where they begin, two bytes each, from its end. No
/// block is ever moved or copied, so at its peak a result takes no more than it has to.
class GenSqlResultBuffer final : public GenSqlResult {
public:
    explicit GenSqlResultBuffer(sqlite3_stmt* statement);

    /// Copies the row that the statement stands on. False where SQLite lacks the memory to hand it out.
    [[nodiscard]] bool AppendRow(sqlite3_stmt* statement);

    [[nodiscard]] uint32_t GetRowCount() const override { return rowCount_; }
    [[nodiscard]] bool SelectRow(uint32_t index) override;
    [[nodiscard]] bool SelectFirstRow() override { return SelectRow(0); }
    [[nodiscard]] bool GetColumn(uint32_t column, LumString& value) const override;
    [[nodiscard]] bool GetColumn(uint32_t column, int64_t& value) const override;
    [[nodiscard]] bool GetColumn(uint32_t column, double& value) const override;
    [[nodiscard]] bool GetColumn(uint32_t column, bool& value) const override;
    [[nodiscard]] uint32_t GetColumnCount() const override { return static_cast<uint32_t>(names_.size()); }
    [[nodiscard]] bool FindColumn(const LumString& name, uint32_t& column) const override;

private:
    /// A cell on its way into a block.
    struct Pending {
        uint8_t header;
        uint32_t length;    // of the bytes, for a text
        int64_t number;     // a whole number, or the bits of a real one
        const char* bytes;  // of a text; valid until the statement moves on
    };

    struct Block {
        std::unique_ptr<char[]> bytes;
        std::size_t size;
        uint32_t firstRow;
    };

    [[nodiscard]] static bool ReadCell(sqlite3_stmt* statement, int column, Pending& cell);
    [[nodiscard]] char* MakeRoom(std::size_t bytes);
    [[nodiscard]] const char* RowAt(uint32_t index);
    [[nodiscard]] bool HasCell(uint32_t column) const { return rowCount_ > 0 && column < cells_.size(); }

    std::vector<LumString> names_;
    std::vector<Pending> pending_;
    std::vector<Block> blocks_;
    std::size_t used_ = 0;  // bytes of rows in the last block
    uint32_t rowCount_ = 0;

    std::vector<const char*> cells_;  // of the selected row
    std::size_t selectedBlock_ = 0;
};

/// What a statement without rows returns.
class GenSqlNoRows final : public GenSqlResult {
public:
    [[nodiscard]] uint32_t GetRowCount() const override { return 0; }
    [[nodiscard]] bool SelectRow(uint32_t /*index*/) override { return false; }
    [[nodiscard]] bool SelectFirstRow() override { return false; }
    [[nodiscard]] bool GetColumn(uint32_t /*column*/, LumString& /*value*/) const override { return false; }
    [[nodiscard]] bool GetColumn(uint32_t /*column*/, int64_t& /*value*/) const override { return false; }
    [[nodiscard]] bool GetColumn(uint32_t /*column*/, double& /*value*/) const override { return false; }
    [[nodiscard]] bool GetColumn(uint32_t /*column*/, bool& /*value*/) const override { return false; }
    [[nodiscard]] uint32_t GetColumnCount() const override { return 0; }
    [[nodiscard]] bool FindColumn(const LumString& /*name*/, uint32_t& /*column*/) const override {
        return false;
    }
};
