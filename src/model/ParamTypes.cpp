#include "model/ParamTypes.h"

#include <array>

#include "contract/ParamTypeTokens.h"
#include "host/database/SqlText.h"
#include "host/text/LumFormat.h"

namespace {

bool AppendText(const LumContainer& values, const LumString& name, std::string& sql) {
    const LumString* const text = values.FindString(name);
    if (text == nullptr) {
        return false;
    }
    LumAppendQuoted(sql, text->View());
    return true;
}

bool AppendInteger(const LumContainer& values, const LumString& name, std::string& sql) {
    int32_t value = 0;
    if (!values.GetInt32(name, value)) {
        return false;
    }
    LumAppendNumber(sql, value);
    return true;
}

// A double is stored as quoted text with six decimals; the column's affinity makes it a number again.
bool AppendDouble(const LumContainer& values, const LumString& name, std::string& sql) {
    double value = 0;
    if (!values.GetDouble(name, value)) {
        return false;
    }
    sql.push_back('\'');
    LumAppendDouble(sql, value);
    sql.push_back('\'');
    return true;
}

bool AppendBoolean(const LumContainer& values, const LumString& name, std::string& sql) {
    bool value = false;
    if (!values.GetBool(name, value)) {
        return false;
    }
    sql.push_back(value ? '1' : '0');
    return true;
}

void AppendTextDefault(const LumString& text, std::string& sql) {
    LumAppendQuoted(sql, text.View());
}

void AppendPlainDefault(const LumString& text, std::string& sql) {
    sql.append(text.View());
}

void AppendDoubleDefault(const LumString& text, std::string& sql) {
    sql.append("'").append(text.View()).append("'");
}

std::size_t CopyText(const GenSqlResult& rows, uint32_t column, LumContainer& container,
                     const LumString& name, uint32_t index) {
    LumString value;
    if (rows.GetColumn(column, value)) {
        container.SetString(name, value, index);
    }
    return value.GetLength();
}

/// What the database has as a `Cell` becomes a `Value` of the container.
template <class Cell, class Value, bool (LumContainer::*Set)(const LumString&, Value, uint32_t)>
std::size_t CopyNumber(const GenSqlResult& rows, uint32_t column, LumContainer& container,
                       const LumString& name, uint32_t index) {
    Cell value{};
    if (rows.GetColumn(column, value)) {
        (container.*Set)(name, static_cast<Value>(value), index);
    }
    return 0;
}

constexpr auto kCopyInteger = CopyNumber<int64_t, int32_t, &LumContainer::SetInt32>;
constexpr auto kCopyDouble = CopyNumber<double, double, &LumContainer::SetDouble>;
constexpr auto kCopyBoolean = CopyNumber<bool, bool, &LumContainer::SetBool>;

constexpr std::array<ParamTypeTraits, 6> kTable = {{
    {ParamType::kString, kTypeString, "TEXT", AppendText, AppendTextDefault, CopyText},
    {ParamType::kInteger, kTypeInteger, "INTEGER", AppendInteger, AppendPlainDefault, kCopyInteger},
    {ParamType::kDouble, kTypeDouble, "FLOAT", AppendDouble, AppendDoubleDefault, kCopyDouble},
    {ParamType::kTimestamp, kTypeTimestamp, "TIMESTAMP", AppendInteger, AppendPlainDefault, kCopyInteger},
    {ParamType::kBoolean, kTypeBoolean, "BOOLEAN", AppendBoolean, AppendPlainDefault, kCopyBoolean},
    {ParamType::kEnum, kTypeEnum, "ENUM", AppendText, AppendTextDefault, CopyText},
}};

}  // namespace

constinit const std::span<const ParamTypeTraits> kParamTypes{kTable};

const ParamTypeTraits* FindParamType(ParamType type) {
    const auto code = static_cast<uint32_t>(type);
    return code >= 1 && code <= kTable.size() ? &kTable[code - 1] : nullptr;
}
