#include "model/Model.h"

#include "host/text/LumMd5.h"

bool Model_t::ComputeChecksum() {
    LumString text(name_);
    ForEachParam(*this, [&text](const ModelParam_t& param, uint32_t /*position*/) {
        LumString part;
        part.Printf(" %S %d", param.GetName(), static_cast<int32_t>(param.GetType()));
        text += part;
        return true;
    });
    checksum_ = MD5HashHex(text);
    return true;
}
