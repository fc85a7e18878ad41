#include "events/UploadFiles.h"

#include "contract/ContainerKeys.h"
#include "model/ModelArguments.h"

namespace {

/// The columns before the parameters: date, offset, device id, group id.
constexpr uint32_t kFixedColumns = 4;

LumContainer DescribeModel(const Model_t& model) {
    LumContainer description;
    description.SetString(keys::kModelName, model.GetName());
    description.SetString(keys::kModelChecksum, model.GetChecksum());
    description.SetContainer(keys::kModelVars, DescribeParams(model));
    return description;
}

/// Copies an integer column of the selected row to `key`; true where it is not 0.
bool CopyInteger(const GenSqlResult& rows, uint32_t column, LumContainer& file, const LumString& key,
                 uint32_t index) {
    const int32_t value = ReadInt32(rows, column);
    file.SetInt32(key, value, index);
    return value != 0;
}

}  // namespace

UploadFiles::UploadFiles(const Model_t& model)
    : description_(DescribeModel(model)), params_(model, kFixedColumns) {}

uint32_t UploadFiles::Fill(GenSqlResult& rows, uint32_t first, LumContainer& file) const {
    const uint32_t fitting = CopyRows(rows, first, kUploadFileEvents, file);
    if (file.CountValues(date_) > fitting) {
        return CopyRows(rows, first, fitting, file);  // without the one that had no room
    }
    return fitting;
}

uint32_t UploadFiles::CopyRows(GenSqlResult& rows, uint32_t first, uint32_t limit, LumContainer& file) const {
    file.Clear();
    file.SetContainer(keys::kModelDef, description_);
    bool hasDeviceId = false;
    bool hasGroupId = false;
    std::size_t text = 0;
    uint32_t count = 0;
    for (; count < limit && rows.SelectRow(first + count); ++count) {
        CopyInteger(rows, 0, file, date_, count);
        CopyInteger(rows, 1, file, offset_, count);
        hasDeviceId |= CopyInteger(rows, 2, file, deviceId_, count);
        hasGroupId |= CopyInteger(rows, 3, file, groupId_, count);
        text += params_.Copy(rows, file, count);
        if (count > 0 && text > kUploadFileText) {
            break;
        }
    }
    if (!hasDeviceId) {
        file.ClearName(deviceId_);
    }
    if (!hasGroupId) {
        file.ClearName(groupId_);
    }
    return count;
}
