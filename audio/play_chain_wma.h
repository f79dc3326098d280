#pragma once

#include "audio/file_reader_wma.h"
#include "audio/play_chain.h"

#include <memory>
#include <string>

// A Windows Media file, played by the media service: the chain's provider
// delivers nothing, the player stands idle, and pause goes to the service.
// Threads: the main thread. Made by create_play_chain, owned by the caller.
class PlayChainWMA : public audio::PlayChainReaderOnlyBase<audio::FileReaderWMA> {
public:
    PlayChainWMA(std::unique_ptr<audio::FileReaderWMA> reader_, const std::wstring& path, const wchar_t* format_)
        : audio::PlayChainReaderOnlyBase<audio::FileReaderWMA>(std::move(reader_), path, format_)
    {
    }
    audio::Provider<audio::PCMData>* get_provider() override { return reader.get(); }
    bool set_paused(bool on) override
    {
        reader->set_paused(on);
        paused = on;
        return true;
    }
    bool is_paused() override { return paused; }
    bool uses_player() override { return false; }

private:
    bool paused = false;
};
