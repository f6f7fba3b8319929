// A .ts file played through a playback DVR on a thread of its own, at the pace its PCRs give
// (or as fast as the DVR takes it), so that the demux's filters see it as they see the air.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>

#include "DataPath.h"

namespace tunerctl {

// Whether the file starts as a transport stream does: a sync byte every 188 bytes (over the
// first few packets); false with a one-line reason.
bool looksLikeTransportStream(const std::string& file, std::string& error);

class PlayedFile {
  public:
    // Starts playing into the demux; null with the reason in `error`.
    static std::unique_ptr<PlayedFile> start(const sp<hal::IDemux>& demux, const std::string& file,
                                             bool fast, std::string& error);
    ~PlayedFile();
    PlayedFile(const PlayedFile&) = delete;
    PlayedFile& operator=(const PlayedFile&) = delete;

    // The whole file was written into the DVR and played.
    bool finished() const { return mFinished; }
    uint64_t bytesWritten() const { return mWritten; }
    // Stops (at once, if still playing) and waits for the player thread.
    void stop();

  private:
    PlayedFile() = default;
    void play(std::string file, bool fast);

    std::unique_ptr<Player> mPlayer;
    std::thread mThread;
    std::atomic<bool> mStop{false};
    std::atomic<bool> mFinished{false};
    std::atomic<uint64_t> mWritten{0};
};

}  // namespace tunerctl
