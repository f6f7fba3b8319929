// What a tuner receives once locked: the transport stream of its transmitter, made as the
// clock runs, with the damage reception and the stream's faults do to it.
#include <cmath>

#include "simulator/SimulatedDriver.h"
#include "simulator/stream/CapturedStream.h"
#include "simulator/stream/MultiplexStream.h"
#include "simulator/stream/Reception.h"

namespace mox::sim {
namespace {

using air::CodeRate;

uint32_t bandwidthKHz(uint32_t code) {
    switch (code) {
        case MOX_TUNER_BW_6MHZ:
            return 6000;
        case MOX_TUNER_BW_7MHZ:
            return 7000;
        case MOX_TUNER_BW_5MHZ:
            return 5000;
        case MOX_TUNER_BW_10MHZ:
            return 10000;
        case MOX_TUNER_BW_1_7MHZ:
            return 1712;
        default:
            return 8000;
    }
}

// The C/N a demodulator needs for a quasi error-free stream (Gaussian channel): below it,
// packets arrive damaged at the rate the bit error rate gives.
double requiredCnDb(const air::Delivery& d) {
    const double rate = double(d.codeRate.num) / double(std::max<uint32_t>(1, d.codeRate.den));
    switch (d.system) {
        case air::DeliverySystem::kDvbT:
        case air::DeliverySystem::kDvbT2: {
            // EN 300 744's table: about 3.1 dB for QPSK 1/2, 6 dB more per two bits, and
            // 2.2 dB per step of code rate; DVB-T2's LDPC gains some 2 dB.
            const double bits =
                    d.system == air::DeliverySystem::kDvbT && d.hierarchy ? 2 : d.bitsPerSymbol;
            const double base = 3.1 + (bits - 2) / 2 * 5.6 + (rate - 0.5) * 11.0;
            return d.system == air::DeliverySystem::kDvbT2 ? base - 2.0 : base;
        }
        case air::DeliverySystem::kDvbC:
            return 5.0 + 3.0 * d.bitsPerSymbol;  // 16QAM 17 dB ... 256QAM 29 dB
        case air::DeliverySystem::kDvbS:
            return 4.1 + (rate - 0.5) * 11.0;
        case air::DeliverySystem::kDvbS2:
            return (d.bitsPerSymbol - 2) * 3.5 + 1.0 + (rate - 0.5) * 10.0;
    }
    return 0;
}

}  // namespace

air::Delivery deliveryOf(const Transmitter& tx) {
    air::Delivery d;
    d.frequencyKHz = tx.frequencyMHz * 1000;
    d.symbolRate = tx.symbolRate;
    d.bandwidthKHz = bandwidthKHz(tx.bandwidth);
    d.hierarchy = static_cast<uint8_t>(tx.hierarchy);
    d.plpId = tx.plpIds.empty() ? 0 : tx.plpIds.front();
    d.horizontal = tx.horizontal;
    d.orbitalTenths = static_cast<uint16_t>(tx.switchInput < 0 ? 192 : 192 + 90 * tx.switchInput);
    d.pilots = tx.pilots;
    switch (tx.system) {
        case MOX_TUNER_TYPE_DVBT:
            d.system = air::DeliverySystem::kDvbT;
            d.bitsPerSymbol = 6;
            d.codeRate = {2, 3};
            d.guard = {1, 4};
            break;
        case MOX_TUNER_TYPE_DVBT2:
            d.system = air::DeliverySystem::kDvbT2;
            d.bitsPerSymbol = 8;
            d.codeRate = {2, 3};
            d.guard = {1, 128};
            break;
        case MOX_TUNER_TYPE_DVBC: {
            d.system = air::DeliverySystem::kDvbC;
            d.codeRate = {1, 1};
            // MOX_CableTnr_Mod: 16QAM .. 256QAM
            const uint32_t bits[] = {4, 5, 6, 7, 8};
            d.bitsPerSymbol =
                    tx.modulation >= MOX_CABLE_MOD_16QAM && tx.modulation <= MOX_CABLE_MOD_256QAM
                            ? bits[tx.modulation - MOX_CABLE_MOD_16QAM]
                            : 6;
            break;
        }
        case MOX_TUNER_TYPE_DVBS:
            d.system = air::DeliverySystem::kDvbS;
            d.bitsPerSymbol = 2;
            d.codeRate = {3, 4};
            break;
        default:
            d.system = air::DeliverySystem::kDvbS2;
            d.bitsPerSymbol = 3;
            d.codeRate = {3, 4};
            break;
    }
    if (tx.bitsPerSymbol != 0) d.bitsPerSymbol = tx.bitsPerSymbol;
    if (tx.codeRate.den != 0) d.codeRate = tx.codeRate;
    if (tx.guard.den != 0) d.guard = tx.guard;
    return d;
}

struct SimulatedDriver::TunerStream {
    std::unique_ptr<air::TransportStreamSource> source;
    air::MultiplexStream* multiplex = nullptr;  // the source, when it is made from content
    air::Reception reception{1};
    int transmitter = -1;
    uint64_t tunedAtUs = 0;
    uint64_t originUs = 0;  // the clock at the stream's start
    uint64_t airVersion = UINT64_MAX;
};

air::MultiplexSetup SimulatedDriver::setupLocked(size_t transmitter) const {
    const Transmitter& own = mAir[transmitter];
    air::MultiplexSetup setup;
    setup.content = own.content;
    setup.faults = own.streamFaults;
    setup.network.id = own.content.networkId;
    setup.network.name = own.content.networkName;
    for (size_t i = 0; i < mAir.size(); ++i) {
        const Transmitter& tx = mAir[i];
        if (tx.content.networkId != own.content.networkId || !tx.tsFile.empty()) continue;
        setup.network.multiplexes.push_back({deliveryOf(tx), tx.content});
        if (i != transmitter) setup.others.push_back(tx.content);
    }
    return setup;
}

void SimulatedDriver::setUtcStart(time_t utc) {
    ::android::Mutex::Autolock guard(mLock);
    mUtcStart = utc;
}

std::unique_ptr<air::TransportStreamSource> SimulatedDriver::transmitterStream(size_t transmitter) {
    ::android::Mutex::Autolock guard(mLock);
    if (transmitter >= mAir.size()) return nullptr;
    const Transmitter& tx = mAir[transmitter];
    const uint64_t rate = air::usefulBitRate(deliveryOf(tx));
    if (!tx.tsFile.empty()) {
        try {
            return std::make_unique<air::CapturedStream>(tx.tsFile, rate);
        } catch (const air::CaptureError&) {
            return nullptr;
        }
    }
    return std::make_unique<air::MultiplexStream>(setupLocked(transmitter), rate, mUtcStart);
}

size_t SimulatedDriver::transmitterCount() const {
    ::android::Mutex::Autolock guard(mLock);
    return mAir.size();
}

void SimulatedDriver::prepareStreamLocked(TunerState& tuner, uint8_t tunerIndex) {
    const Transmitter& tx = mAir[tuner.transmitter];
    std::shared_ptr<TunerStream>& stream = tuner.stream;
    const air::Delivery delivery = deliveryOf(tx);
    const uint64_t rate = air::usefulBitRate(delivery);
    if (!stream || stream->transmitter != tuner.transmitter ||
        stream->tunedAtUs != tuner.tunedAtUs) {
        stream = std::make_shared<TunerStream>();
        stream->transmitter = tuner.transmitter;
        stream->tunedAtUs = tuner.tunedAtUs;
        stream->originUs = tuner.tunedAtUs + uint64_t{tx.lockDelayMs} * 1000;
        stream->reception = air::Reception(mMisbehaviour.seed + tunerIndex * 7919u + 1);
        const time_t utc = mUtcStart + static_cast<time_t>((stream->originUs - mStartUs) / 1000000);
        if (!tx.tsFile.empty()) {
            try {
                stream->source = std::make_unique<air::CapturedStream>(tx.tsFile, rate);
            } catch (const air::CaptureError&) {
                stream->source.reset();  // checked when the installation was read; gone since
            }
        } else {
            auto multiplex = std::make_unique<air::MultiplexStream>(setupLocked(tuner.transmitter),
                                                                    rate, utc);
            stream->multiplex = multiplex.get();
            stream->source = std::move(multiplex);
        }
    }
    if (stream->airVersion != mAirVersion) {
        if (stream->multiplex) stream->multiplex->update(setupLocked(tuner.transmitter));
        stream->reception.setContinuityErrors(tx.streamFaults.continuityErrorsPerS, rate);
        stream->airVersion = mAirVersion;
    }
    // Reception: quasi error-free above the C/N the transmission needs, or until a bit error
    // rate is set for it; below, packets break at the rate that BER gives.
    const double ber = tx.ber ? double(*tx.ber) : bitErrorRateAt(tx.cnDb);
    const bool damaged = tx.ber.has_value() || tx.cnDb < requiredCnDb(delivery);
    stream->reception.setPacketErrorRate(damaged ? air::packetErrorRate(ber) : 0.0);
}

uint64_t SimulatedDriver::nowUs() {
    ::android::Mutex::Autolock guard(mLock);
    return mClock();
}

size_t SimulatedDriver::readStream(uint8_t tunerIndex, uint64_t fromUs, uint64_t untilUs,
                                   uint8_t* out, size_t maxPackets) {
    ::android::Mutex::Autolock guard(mLock);
    advanceLocked();
    TunerState* tuner = tunerLocked(tunerIndex);
    if (tuner == nullptr || out == nullptr) return 0;
    if (!lockedLocked(tunerIndex, *tuner)) {
        tuner->stream.reset();
        return 0;
    }
    prepareStreamLocked(*tuner, tunerIndex);
    TunerStream& stream = *tuner->stream;
    if (!stream.source) return 0;
    const uint64_t now = mClock();
    untilUs = std::min(untilUs, now);
    if (untilUs <= stream.originUs) return 0;
    if (fromUs > stream.originUs) stream.source->skipTo(fromUs - stream.originUs);
    const size_t count = stream.source->produce(untilUs - stream.originUs, out, maxPackets);
    stream.reception.apply(out, count);
    return count;
}

}  // namespace mox::sim
