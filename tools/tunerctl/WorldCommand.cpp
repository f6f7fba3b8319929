#include <hidl/HidlTransportSupport.h>
#include <hidl/transport/Passthrough.h>
#include <vendor/mox/simulator/1.0/IWorld.h>

#include <chrono>
#include <cstdio>
#include <iostream>
#include <thread>

#include "ExitCodes.h"
#include "Output.h"
#include "ServiceCalls.h"
#include "TunerClient.h"
#include "World.h"

extern "C" ::vendor::mox::simulator::V1_0::IWorld* HIDL_FETCH_IWorld(const char* name);

namespace tunerctl {

using ::vendor::mox::simulator::V1_0::IWorld;
using json = nlohmann::json;

namespace {

sp<IWorld> connectWorld() {
    static sp<IWorld> world = [] {
        if (inProcess()) {
            return ::android::hardware::details::wrapPassthrough(sp<IWorld>(HIDL_FETCH_IWorld("")));
        }
        connectTuner();  // the service first: its absence is said as for every command
        CallDeadline deadline("connecting to the world");
        return IWorld::getService("default");
    }();
    return world;
}

std::string number(const json& value, const char* format) {
    if (!value.is_number()) return value.is_string() ? value.get<std::string>() : "-";
    char text[32];
    snprintf(text, sizeof(text), format, value.get<double>());
    return text;
}

// What a transmitter carries: its services, or the capture it plays, and its stream's faults.
std::string streamLines(const json& tx) {
    std::string text;
    if (tx.contains("bitRate") && tx.at("bitRate").is_number()) {
        char rate[32];
        snprintf(rate, sizeof(rate), "%.2f Mbit/s", tx.at("bitRate").get<double>() / 1e6);
        text += "  carries " + std::string(rate);
        if (tx.contains("ts") && tx.at("ts").is_string()) {
            text += ": " + tx.at("ts").get<std::string>() + " in a loop";
        } else if (tx.contains("services") && tx.at("services").is_array()) {
            std::vector<std::string> services;
            for (const json& s : tx.at("services")) {
                if (!s.is_object() || !s.contains("name") || !s.contains("id")) continue;
                services.push_back(s.at("name").get<std::string>() + " (" +
                                   s.value("type", std::string("tv")) + " " +
                                   std::to_string(s.at("id").get<uint32_t>()) +
                                   (s.value("scrambled", false) ? ", scrambled" : "") + ")");
            }
            text += ": " + joined(services, ", ");
        }
        text += "\n";
    }
    if (tx.contains("streamFaults") && tx.at("streamFaults").is_object() &&
        !tx.at("streamFaults").empty()) {
        text += "  stream faults: " + tx.at("streamFaults").dump() + "\n";
    }
    return text;
}

std::string tunerLine(const json& t) {
    std::string line = "tuner " + std::to_string(t.at("tuner").get<int>()) + ": ";
    if (!t.at("tuned").get<bool>()) {
        line += "idle";
    } else {
        const json& asked = t.at("asked");
        line += "asked " + asked.at("system").get<std::string>() + " " +
                std::to_string(asked.at("frequencyMHz").get<uint32_t>()) + " MHz, " +
                (t.at("locked").get<bool>() ? "locked" : "no lock");
        if (t.contains("transmitterMHz")) {
            line += ", transmitter " + std::to_string(t.at("transmitterMHz").get<uint32_t>()) +
                    " MHz at " + number(t.at("levelDbuV"), "%.1f") + " dBuV, C/N " +
                    number(t.at("cnDb"), "%.1f") + " dB";
        }
    }
    if (t.contains("lnb")) {
        line += "; behind LNB " + std::to_string(t.at("lnb").get<int>()) + ", which passes";
        if (t.at("receives").empty()) line += " nothing";
        for (const json& r : t.at("receives")) {
            line += " " + std::to_string(r.at("downlinkMHz").get<uint32_t>()) + " MHz (IF " +
                    std::to_string(r.at("ifMHz").get<uint32_t>()) + " MHz)";
        }
    }
    return line;
}

}  // namespace

std::optional<std::string> tunedInTheWorld(uint32_t tuner) {
    sp<IWorld> world = connectWorld();
    if (world == nullptr) return std::nullopt;
    std::string text;
    call("describe", [&] {
        return world->describe([&](const ::android::hardware::hidl_string& t) { text = t; });
    });
    const json parsed = json::parse(text, nullptr, false);
    if (parsed.is_discarded() || !parsed.contains("tuners")) return std::nullopt;
    for (const json& t : parsed.at("tuners")) {
        if (t.value("tuner", -1) != static_cast<int>(tuner) || !t.value("tuned", false)) continue;
        const json& asked = t.at("asked");
        char line[96];
        snprintf(line, sizeof(line), "%s %.3f MHz", asked.value("system", "?").c_str(),
                 asked.value("frequencyMHz", 0u) * 1.0);
        return std::string(line);
    }
    return std::nullopt;
}

std::optional<json> describeWorld() {
    sp<IWorld> world = connectWorld();
    if (world == nullptr) {
        reportFailure(jsonOutput(), kServiceError,
                      "the service has no simulated world to show (a device's driver is real)");
        return std::nullopt;
    }
    std::string text;
    call("describe", [&] {
        return world->describe([&](const ::android::hardware::hidl_string& t) { text = t; });
    });
    json parsed = json::parse(text, nullptr, false);
    if (parsed.is_discarded()) return std::nullopt;
    return parsed;
}

std::string worldText(const json& world) {
    std::string text;
    char clock[64];
    snprintf(clock, sizeof(clock), "simulated clock %.3f s ",
             world.at("clockMs").get<double>() / 1000);
    text += clock;
    const uint32_t speed = world.value("clockSpeed", 1u);
    text += speed == 1 ? "(real time); " : "(" + std::to_string(speed) + "x real time); ";
    std::vector<std::string> inputs;
    for (const auto& [name, connected] : world.at("inputs").items()) {
        inputs.push_back(name + (connected.get<bool>() ? " connected" : " disconnected"));
    }
    text += joined(inputs, ", ") + "\n";
    for (const json& t : world.at("tuners")) text += tunerLine(t) + "\n";
    for (const json& l : world.at("lnbs")) {
        text += "lnb " + std::to_string(l.at("lnb").get<int>()) + ": " +
                l.at("supply").get<std::string>() + ", tone " + l.at("tone").get<std::string>() +
                ", burst " + l.at("burst").get<std::string>() + ", last DiSEqC [" +
                l.at("diseqc").get<std::string>() + "]; selects " +
                l.at("selects").get<std::string>() + "\n";
    }
    for (const json& tx : world.at("transmitters")) {
        text += "transmitter " + std::to_string(tx.at("frequencyMHz").get<uint32_t>()) + " MHz " +
                tx.at("system").get<std::string>() + ": " +
                (tx.at("onAir").get<bool>() ? "on air, " : "off air, ") +
                number(tx.at("levelDbuV"), "%.1f") + " dBuV, C/N " + number(tx.at("cnDb"), "%.1f") +
                " dB\n";
        text += streamLines(tx);
    }
    for (const json& f : world.at("faults")) {
        text += "fault: " + f.at("function").get<std::string>() + " returns " +
                std::to_string(f.at("result").get<int>());
        if (f.at("first").get<uint32_t>() != 0) {
            text += " on the first " + std::to_string(f.at("first").get<uint32_t>()) + " calls";
        }
        if (f.at("every").get<uint32_t>() != 0) {
            text += " every " + std::to_string(f.at("every").get<uint32_t>()) + " calls";
        }
        text += "\n";
    }
    return text;
}

int runWorld(const GlobalOptions& global, const WorldOptions& options) {
    if (!options.change.empty()) {
        sp<IWorld> world = connectWorld();
        if (world == nullptr)
            return reportFailure(global.json, kServiceError, "no simulated world");
        const std::string change = joined(options.change, " ");
        bool accepted = false;
        std::string answer;
        call("change", [&] {
            return world->change(change, [&](bool a, const ::android::hardware::hidl_string& s) {
                accepted = a;
                answer = s;
            });
        });
        if (!accepted) return reportFailure(global.json, kUsageError, answer);
        if (global.json) {
            std::cout << JsonObject().add("change", change).add("accepted", true).str() << "\n";
        } else {
            std::cout << answer << "\n";
        }
        return kSuccess;
    }
    installInterruptHandler();
    do {
        const std::optional<json> world = describeWorld();
        if (!world) return kServiceError;
        std::cout << (global.json ? world->dump() + "\n" : worldText(*world)) << std::flush;
        for (int i = 0; options.watch && i < 10 && !interrupted(); ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
    } while (options.watch && !interrupted());
    return options.watch ? kInterrupted : kSuccess;
}

}  // namespace tunerctl
