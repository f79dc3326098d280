#pragma once

#include "audio/adpcm_codec.h"
#include "audio/decoder_mp3.h"
#include "audio/file_reader.h"
#include "audio/file_reader_mp3.h"
#include "audio/file_reader_wav.h"
#include "audio/gsm_codec.h"
#include "audio/pipeline.h"
#include "audio/records.h"
#include "audio/router.h"
#include "liba/nocopy.h"

#include <functional>
#include <memory>
#include <string>
#include <utility>

// What one opened sound file becomes: a chain that owns the file's reader
// and, where the format needs one, its decoder, and hands out one PCM
// provider and one FileReader. The format is found by content: the factory
// tries the readers one after another until one parses the file.
// Threads: a chain is made and deleted on the main thread, with the link to
// its provider cut first; the provider is pulled on the player's thread; the
// reader answers both under its own lock. Chains have no lock of their own.
namespace audio {

// The format names, which are also the keys by which the record side picks
// a chain for appending. "mp3" is lower case and the others are not.
inline constexpr const wchar_t* kFormatPCM = L"PCM";
inline constexpr const wchar_t* kFormatADPCM = L"ADPCM";
inline constexpr const wchar_t* kFormatGSM = L"GSM";
inline constexpr const wchar_t* kFormatVorbis = L"Vorbis";
inline constexpr const wchar_t* kFormatMPC = L"MPC";
inline constexpr const wchar_t* kFormatMP3 = L"mp3";
inline constexpr const wchar_t* kFormatWMA = L"WMA";

class PlayChain : liba::Nocopy {
public:
    virtual ~PlayChain() = default;
    // The end from which decoded audio comes. Owned by the chain.
    virtual Provider<PCMData>* get_provider() = 0;
    // Time, position and format queries; owned by the chain, valid for its
    // life; null if there is no reader.
    virtual FileReader* get_reader() = 0;
    // Pause of a chain that makes its own sound; the others do nothing.
    virtual bool set_paused(bool) { return false; }
    virtual bool is_paused() { return false; }
    // False for a chain that makes its own sound and bypasses the stages.
    virtual bool uses_player() { return true; }
    // One of the kFormat names.
    virtual std::wstring get_format() = 0;
    // The title to show: the file's name, or an MP3 tag's title.
    virtual std::wstring get_title() = 0;
};

// The last component of `path`, behind the last "\" or "/"; the whole path
// if it has neither.
std::wstring title_of_path(const std::wstring& path);

// A chain whose reader is its only owned stage.
template <class R>
class PlayChainReaderOnlyBase : public PlayChain {
public:
    PlayChainReaderOnlyBase(std::unique_ptr<R> reader_, const std::wstring& path, const wchar_t* format_)
        : format(format_), reader(std::move(reader_)), title(title_of_path(path))
    {
    }
    FileReader* get_reader() override { return reader.get(); }
    std::wstring get_format() override { return format; }
    std::wstring get_title() override { return title; }

protected:
    std::wstring format;
    std::unique_ptr<R> reader;
    std::wstring title;
};

// The reader delivers PCM itself and is the provider.
template <class R>
class PlayChainReaderOnly : public PlayChainReaderOnlyBase<R> {
public:
    using PlayChainReaderOnlyBase<R>::PlayChainReaderOnlyBase;
    Provider<PCMData>* get_provider() override { return this->reader.get(); }
};

// The reader delivers coded blocks to a decoder, which is the provider. The
// decoder goes before the reader.
template <class R, class D>
class PlayChainReaderDecoder : public PlayChainReaderOnlyBase<R> {
public:
    PlayChainReaderDecoder(std::unique_ptr<R> reader_, const std::wstring& path, const wchar_t* format_)
        : PlayChainReaderOnlyBase<R>(std::move(reader_), path, format_), decoder(std::make_unique<D>())
    {
        connect(*this->reader, decoder.get());
    }
    ~PlayChainReaderDecoder() override
    {
        connect(*this->reader, nullptr);
        decoder.reset();
    }
    Provider<PCMData>* get_provider() override { return decoder.get(); }

protected:
    std::unique_ptr<D> decoder;
};

// Reads the title an MP3 file's ID3 version 1 tag gives it; empty for none.
// The tag format belongs to the files layer above this one, so the maker of
// the chain hands its reader in.
using TagTitleReader = std::function<std::wstring(const std::wstring& path)>;

// An MP3 file: frames from the reader through libmad. Its title is the tag's
// when the tag has a title.
class PlayChainMP3 : public PlayChainReaderDecoder<FileReaderMP3, DecoderMP3> {
public:
    PlayChainMP3(std::unique_ptr<FileReaderMP3> reader_, const std::wstring& path, const wchar_t* format_,
                 const TagTitleReader& tag_title);
};

// Opens `path` as the first format whose reader parses it, in the order PCM,
// ADPCM, GSM, Vorbis, MPC, mp3, then Windows Media (those of them this build
// has). With `marks` the reader plays only the route through them, and only
// PCM, ADPCM, GSM, Vorbis and mp3 can do that. Null when no reader takes the
// file; an owned chain otherwise. `tag_title` gives MP3 files their title.
std::unique_ptr<PlayChain> create_play_chain(const std::wstring& path, const RouteMarks* marks,
                                             const TagTitleReader& tag_title = {});

} // namespace audio
