// A simulated MOX tuner driver: a set-top box with terrestrial, cable and satellite tuners in
// front of a virtual broadcast environment. A tuner locks when the record it was given matches
// a transmitter on the air (delivery system, MHz, symbol rate within tolerance, bandwidth) and
// the transmitter's lock delay has passed; its signal figures follow the transmitter.
#pragma once

#include <utils/Mutex.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <ctime>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "driver/MoxEntryPoints.h"
#include "driver/MoxTuner.h"
#include "simulator/stream/MultiplexContent.h"
#include "simulator/stream/MultiplexStream.h"

namespace mox::sim {

struct Transmitter {
    uint32_t system;        // MOX_Tuner_Type code: 1 DVB-C, 4 DVB-T, 5 DVB-S, 6 DVB-S2, 7 DVB-T2
    uint32_t frequencyMHz;  // centre frequency
    uint32_t symbolRate;    // symbols per second; 0 for terrestrial
    uint32_t bandwidth;     // MOX_Tuner_Bandwidth code; 0 where the system has none
    float levelDbuV;        // received level
    float cnDb;             // carrier to noise ratio
    uint32_t lockDelayMs;   // time from tuning to lock
    uint32_t hierarchy;     // MOX_DVBT_Hierarchy code
    std::vector<uint8_t> plpIds;
    uint32_t modulation = 0;  // MOX_CableTnr_Mod code a demodulator must be set to; 0: any
    uint32_t annex = 0;       // MOX_DVBC_ANNEX_TYPE code likewise; 0: any
    // A satellite transponder behind the dish: frequencyMHz is its downlink frequency, received
    // through the switch input of its satellite (0..3 for A..D) in its polarisation. -1: the
    // transponder is given at the LNB's output frequency and reaches every satellite tuner.
    int switchInput = -1;
    bool horizontal = false;
    // Once locked, the lock comes and goes every this many milliseconds; 0: it holds.
    uint32_t flapPeriodMs = 0;
    // Figures the driver reports as they are, in place of those from level and C/N: NaN,
    // infinities and values out of any range included.
    std::optional<float> snr{};
    std::optional<float> ber{};
    std::optional<float> mer{};
    std::optional<float> lber{};
    std::optional<float> packetError{};
    // Switched off (by a change of the world): nothing locks to it.
    bool onAir = true;
    // How it transmits beyond what tuning matches; zero: the system's usual (DVB-T 64QAM 2/3
    // 1/4, DVB-T2 256QAM 2/3 1/128, DVB-C 64QAM, DVB-S QPSK 3/4, DVB-S2 8PSK 3/4).
    uint32_t bitsPerSymbol = 0;
    air::CodeRate codeRate{0, 0};
    air::CodeRate guard{0, 0};
    bool pilots = false;
    // What it carries: services made up for it when the air is set without any.
    air::MultiplexContent content{};
    air::StreamFaults streamFaults{};
    std::string tsFile{};  // a captured stream played in place of the content
};

// The bit error rate the simulated demodulator sees at a C/N: what it reports and what breaks
// packets below the C/N a transmission needs.
inline double bitErrorRateAt(double cnDb) {
    return std::pow(10.0, -cnDb / 4.0);
}

// Its delivery in broadcast terms, with the system's usual values where it gives none.
air::Delivery deliveryOf(const Transmitter& tx);
// Gives every transmitter without services a network's worth of them, and every service its
// PIDs where it has none: the built-in box's networks and those of files that name none.
void completeAir(std::vector<Transmitter>& air);

// The driver's entry points, for faults: the tuner driver's part of the one list, named as
// installation files and world changes write them (kEntryPoints[f].shortName).
using DriverFunction = ::mox::DriverFunction;
inline constexpr size_t kDriverFunctions = kDriverEntryPointCount;

// A driver function that fails with a result code: on every call, on the first calls, or on
// every n-th call.
struct Fault {
    int result = 0;      // 0: no fault
    uint32_t first = 0;  // fail only the first this many calls; 0: not limited
    uint32_t every = 0;  // fail only every this-many-th call; 0: every call
};

// How the driver misbehaves on purpose.
struct Misbehaviour {
    std::array<Fault, kDriverFunctions> faults{};
    std::vector<bool> entryNeverLocks;  // per capability entry: its tuners never lock
    uint32_t seed = 12345;              // of the figures' jitter
};

// What the driver last received for one LNB.
struct LnbState {
    uint32_t mode = 0;
    uint32_t tone = 0;
    int32_t lastBurst = -1;  // -1 when no burst was sent
    std::vector<uint8_t> lastDiseqc;
    uint32_t diseqcCount = 0;
    // What a universal LNB behind a DiSEqC 1.0 switch receives: the voltage, the 22 kHz tone, a
    // tone burst and a committed-switch command each set part of it, and the latest command wins.
    bool horizontal = false;              // 18 V, or the command's polarisation bit
    bool highBand = false;                // the tone, or the command's band bit
    int input = 0;                        // switch input 0..3 (A..D)
    const char* polarisationBy = "none";  // what set each part last
    const char* bandBy = "none";
    const char* inputBy = "none";

    // "vertical (voltage), low band (none), input A (DiSEqC)"; "off" without LNB voltage.
    std::string selection() const;
};

// The box's inputs: a cable for DVB-C, an antenna for DVB-T/T2, the dish for satellite tuners.
enum class Input { kCable, kAntenna, kDish };
inline constexpr size_t kInputs = 3;

// A change of the world while the service runs, from a client of the world or from the
// installation's timeline. Its words are the same in both (see WorldChange.cpp).
struct WorldChange {
    enum class Kind {
        kTransmitterOn,
        kTransmitterOff,
        kFigure,
        kConnect,
        kDisconnect,
        kFail,
        kHeal,
        kStream
    };
    enum class Figure { kLevel, kCn, kBer };
    // What "stream FREQ ..." changes of the transport stream.
    enum class Stream {
        kContinuityErrors,
        kCrcErrors,
        kWithout,
        kWith,
        kOverflow,
        kClean,
        kRename,
        kAddService,
        kRemoveService
    };
    Kind kind = Kind::kTransmitterOn;
    uint32_t frequencyMHz = 0;  // the transmitter's, for the transmitter kinds
    Figure figure = Figure::kLevel;
    float value = 0;
    uint32_t overMs = 0;  // a level or C/N ramps there over this long; 0: at once
    Input input = Input::kCable;
    DriverFunction function = DriverFunction::Init;
    Fault fault;
    Stream stream = Stream::kClean;
    air::Table table = air::Table::kSdt;
    uint16_t serviceId = 0;
    uint8_t serviceType = 0x01;
    std::string name;
};
// Reads "transmitter 474MHz off", "transmitter 474MHz level 40 over 10s", "disconnect dish",
// "fail Scan -3 first 1", "heal Scan" ...; false with the reason in error.
bool parseWorldChange(const std::string& text, WorldChange& change, std::string& error);

// A change the timeline makes when the simulated clock has run this long since the start.
struct TimedChange {
    uint64_t atMs = 0;
    WorldChange change;
};

class SimulatedDriver {
  public:
    using Clock = std::function<uint64_t()>;  // microseconds

    SimulatedDriver();

    // The default box: DVB-T/T2 with 2 channels, DVB-C with 1, DVB-S/S2 with 1 and two LNBs.
    static MOX_TunerCapability_t defaultCapabilities();
    static std::vector<Transmitter> defaultAir();

    // The clock, and how many times faster than real time it runs (the world says so).
    void setClock(Clock clock, uint32_t speed = 1);
    void setCapabilities(const MOX_TunerCapability_t& capability);
    // The box and the air it receives; every tuner and LNB starts idle.
    void setEnvironment(const MOX_TunerCapability_t& capability, std::vector<Transmitter> air,
                        Misbehaviour misbehaviour = {});
    LnbState lnb(int32_t lnbId) const;
    // Changes to make as the simulated clock runs on, in their order.
    void setTimeline(std::vector<TimedChange> timeline);

    // The world as the driver sees it now, as one JSON document: every tuner's last tuning and
    // lock and figures, every LNB's commands and what they select, the air, the inputs, faults.
    std::string describe();
    // Makes a change now; false, with the reason, when it names nothing the world has.
    bool change(const WorldChange& change, std::string& error);

    int init();
    int getCapabilities(MOX_TunerCapability_t* capability);
    int scan(uint8_t tunerIndex, const MOX_TunerParam_t& param);
    int isLocked(uint8_t tunerIndex);
    int getInfo(uint8_t tunerIndex, MOX_TunerSignalInfo_t* info);
    int getParamInfo(uint8_t tunerIndex, MOX_TunerParamInfo_t* info);
    int release(uint8_t tunerIndex);
    int setLnbMode(int32_t lnbId, uint32_t mode);
    int set22k(int32_t lnbId, uint32_t on);
    int sendToneBurst(int32_t lnbId, uint32_t burst);
    int sendDiseqc(int32_t lnbId, const MOX_DiSEqCCmd_t& cmd);

    // The transport stream a tuner receives between fromUs and untilUs of the clock (never past
    // now), at most maxPackets of 188 bytes into out; how many. Nothing without lock. One
    // reader per tuner: what was read is not read again, and a reader that comes back later
    // than it left misses what was sent meanwhile.
    size_t readStream(uint8_t tunerIndex, uint64_t fromUs, uint64_t untilUs, uint8_t* out,
                      size_t maxPackets);
    // The driver's clock, in microseconds.
    uint64_t nowUs();
    // The network's time at the start of the clock; the wall clock's when not set.
    void setUtcStart(time_t utc);
    // The stream a transmitter sends, as it leaves the transmitter (no reception on the way),
    // from the start of the clock; nullptr when there is no such transmitter or its capture
    // cannot be read. For tests and benchmarks of the air.
    std::unique_ptr<air::TransportStreamSource> transmitterStream(size_t transmitter);
    size_t transmitterCount() const;

  private:
    struct TunerStream;
    struct TunerState {
        bool tuned = false;
        MOX_TunerParam_t param{};
        uint64_t tunedAtUs = 0;
        int transmitter = -1;                 // index into mAir, -1 when nothing matches
        std::shared_ptr<TunerStream> stream;  // from its lock on
    };

    bool lockedLocked(uint8_t tunerIndex, const TunerState& tuner) const REQUIRES(mLock);
    int matchLocked(uint8_t tunerIndex, const MOX_TunerParam_t& param) const REQUIRES(mLock);
    // Whether the dish in front of the tuner passes the transponder to it at this IF.
    // The universal LNB: the intermediate frequency at which the LNB, as set now, hands the
    // transponder to its tuner; nullopt when its supply, tone and switch do not pass it.
    static std::optional<uint32_t> dishIfMHz(const LnbState& lnb, const Transmitter& tx);
    bool dishPassesLocked(uint8_t tunerIndex, const Transmitter& tx, uint32_t ifMHz) const
            REQUIRES(mLock);
    float jitterLocked(float amplitude) REQUIRES(mLock);
    // Applies the timeline's changes that are due and moves ramps on; every entry point first.
    void advanceLocked() REQUIRES(mLock);
    bool changeLocked(const WorldChange& change, std::string& error) REQUIRES(mLock);
    bool connectedLocked(uint32_t system) const REQUIRES(mLock);
    void reacquireLocked() REQUIRES(mLock);
    // The result a fault gives this call of the function, 0 when it does not fail.
    int faultLocked(DriverFunction function) REQUIRES(mLock);
    TunerState* tunerLocked(uint8_t tunerIndex) REQUIRES(mLock);
    LnbState* lnbLocked(int32_t lnbId) REQUIRES(mLock);
    bool streamChangeLocked(const WorldChange& change, Transmitter& tx, std::string& error)
            REQUIRES(mLock);
    air::MultiplexSetup setupLocked(size_t transmitter) const REQUIRES(mLock);
    void prepareStreamLocked(TunerState& tuner, uint8_t tunerIndex) REQUIRES(mLock);

    mutable ::android::Mutex mLock;
    Clock mClock GUARDED_BY(mLock);
    uint32_t mClockSpeed GUARDED_BY(mLock) = 1;
    MOX_TunerCapability_t mCapability GUARDED_BY(mLock);
    std::vector<Transmitter> mAir GUARDED_BY(mLock);
    std::vector<TunerState> mTuners GUARDED_BY(mLock);
    std::vector<LnbState> mLnbs GUARDED_BY(mLock);
    std::vector<int> mTunerLnbs GUARDED_BY(mLock);  // the LNB each tuner sits behind, or -1
    std::vector<bool> mTunerNeverLocks GUARDED_BY(mLock);
    Misbehaviour mMisbehaviour GUARDED_BY(mLock);
    std::array<uint32_t, kDriverFunctions> mCalls GUARDED_BY(mLock){};
    uint32_t mNoiseSeed GUARDED_BY(mLock) = 12345;
    std::array<bool, kInputs> mConnected GUARDED_BY(mLock){true, true, true};
    struct Ramp {
        size_t transmitter;
        WorldChange::Figure figure;
        float from;
        float to;
        uint64_t startUs;
        uint64_t durationUs;
    };
    std::vector<Ramp> mRamps GUARDED_BY(mLock);
    std::vector<TimedChange> mTimeline GUARDED_BY(mLock);
    size_t mTimelineDone GUARDED_BY(mLock) = 0;
    uint64_t mStartUs GUARDED_BY(mLock) = 0;  // when the environment was set
    time_t mUtcStart GUARDED_BY(mLock) = 0;
    uint64_t mAirVersion GUARDED_BY(mLock) = 0;  // moves on with every change of the air
};

// The instance behind the driver's C entry points.
SimulatedDriver& simulator();

}  // namespace mox::sim
