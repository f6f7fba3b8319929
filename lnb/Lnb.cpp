#include "lnb/Lnb.h"

#include <cstring>

#include "common/ServiceLog.h"
#include "driver/MoxTuner.h"

#define LNB_LOG(priority, fmt, ...) \
    SERVICE_LOG(priority, TUNER_LOG_TAG_PREFIX "Lnb", "Lnb", fmt, ##__VA_ARGS__)

namespace android::hardware::tv::tuner::V1_0::implementation {

namespace {
// Driver LNB mode per LnbVoltage 1..8: mode 1 for supplies up to 13 V, mode 2 from 14 V.
constexpr uint32_t kLnbModeByVoltage[8] = {1, 1, 1, 1, 2, 2, 2, 2};
}  // namespace

Lnb::Lnb() : mId(0) {}

Lnb::Lnb(int id) : mId(id) {}

Return<Result> Lnb::setCallback(const sp<ILnbCallback>& /*callback*/) {
    LNB_LOG(ANDROID_LOG_DEBUG, "Enter >>");
    return Result::SUCCESS;
}

Return<Result> Lnb::setVoltage(LnbVoltage voltage) {
    LNB_LOG(ANDROID_LOG_DEBUG, "Enter >>");
    const uint32_t number = static_cast<uint32_t>(voltage);
    const uint32_t mode = (number >= 1 && number <= 8) ? kLnbModeByVoltage[number - 1] : 0;
    LNB_LOG(ANDROID_LOG_DEBUG, "mid:%d", mId);
    MOX_Tuner_SetLNBMode(mId, mode);
    return Result::SUCCESS;
}

Return<Result> Lnb::setTone(LnbTone tone) {
    LNB_LOG(ANDROID_LOG_DEBUG, "Enter >>");
    MOX_Tuner_Set22KContinues(mId, tone == LnbTone::CONTINUOUS ? 1 : 0);
    return Result::SUCCESS;
}

Return<Result> Lnb::setSatellitePosition(LnbPosition position) {
    LNB_LOG(ANDROID_LOG_DEBUG, "Enter >>");
    if (position == LnbPosition::POSITION_A) {
        MOX_Tuner_SendDiSEqCToneBurst(mId, 0);
    } else if (position == LnbPosition::POSITION_B) {
        MOX_Tuner_SendDiSEqCToneBurst(mId, 1);
    }
    return Result::SUCCESS;
}

Return<Result> Lnb::sendDiseqcMessage(const hidl_vec<uint8_t>& diseqcMessage) {
    LNB_LOG(ANDROID_LOG_DEBUG, "Enter >>");
    if (diseqcMessage.size() > MOX_DISEQC_MSG_MAX) {
        LNB_LOG(ANDROID_LOG_ERROR, "diseqcMessage.size() larger than MOX_DISEQC_MSG_MAX(%d)!!",
                MOX_DISEQC_MSG_MAX);
        return Result::INVALID_ARGUMENT;
    }
    MOX_DiSEqCCmd_t cmd;
    memset(&cmd, 0, sizeof(cmd));
    cmd.ucLen = static_cast<uint8_t>(diseqcMessage.size());
    LNB_LOG(ANDROID_LOG_DEBUG, "size:%d", cmd.ucLen);
    if (cmd.ucLen > 0) memcpy(cmd.ucData, diseqcMessage.data(), cmd.ucLen);
    MOX_Tuner_SendDiSEqCCmd(mId, cmd);
    return Result::SUCCESS;
}

Return<Result> Lnb::close() {
    LNB_LOG(ANDROID_LOG_DEBUG, "Enter >>");
    return Result::SUCCESS;
}

}  // namespace android::hardware::tv::tuner::V1_0::implementation
