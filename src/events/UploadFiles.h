#pragma once

#include <cstddef>
#include <cstdint>

#include "contract/ContainerKeys.h"
#include "host/container/LumContainer.h"
#include "host/database/Database.h"
#include "model/Model.h"
#include "store/EventTable.h"

/// How many events a file holds at most, so that a backlog becomes many small files.
inline constexpr uint32_t kUploadFileEvents = 100;
/// How many bytes of text: a file has to stay well below what a reader takes.
inline constexpr std::size_t kUploadFileText = std::size_t{32} << 20U;

/// Turns the rows of the upload statement of one model into the contents of upload files.
class UploadFiles {
public:
    explicit UploadFiles(const Model_t& model);

    /// Fills `file` with the description of the model and the rows of `rows` from `first` on, up to
    /// kUploadFileEvents of them or as many as kUploadFileText has room for, but one at least, and returns
    /// their number. The same rows make the same file. Device and group ids are left out where all of them
    /// are 0.
    [[nodiscard]] uint32_t Fill(GenSqlResult& rows, uint32_t first, LumContainer& file) const;

private:
    /// Copies rows until there are `limit` or one has no room; then that one is in the file too.
    [[nodiscard]] uint32_t CopyRows(GenSqlResult& rows, uint32_t first, uint32_t limit,
                                    LumContainer& file) const;

    const LumString date_{keys::kEventDate};
    const LumString offset_{keys::kEventGmtOffset};
    const LumString deviceId_{keys::kEventDeviceId};
    const LumString groupId_{keys::kEventGroupId};
    const LumContainer description_;
    const ParamCells params_;
};
