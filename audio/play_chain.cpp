#include "audio/play_chain.h"

#include "audio/decoder_mpc.h"
#include "audio/decoder_vorbis.h"
#include "audio/file_reader_wma.h"
#include "audio/play_chain_wma.h"
#include "os/file.h"

namespace audio {

std::wstring title_of_path(const std::wstring& path)
{
    std::size_t last = path.find_last_of(L"/\\");
    return last == std::wstring::npos ? path : path.substr(last + 1);
}

PlayChainMP3::PlayChainMP3(std::unique_ptr<FileReaderMP3> reader_, const std::wstring& path,
                           const wchar_t* format_, const TagTitleReader& tag_title)
    : PlayChainReaderDecoder<FileReaderMP3, DecoderMP3>(std::move(reader_), path, format_)
{
    if (!tag_title || !reader->is_open())
        return;
    std::wstring from_tag = tag_title(path);
    if (!from_tag.empty())
        title = std::move(from_tag);
}

namespace {

// The plain reader, or its routed form when there are marks.
template <class R>
std::unique_ptr<R> make_reader(const std::wstring& path, const RouteMarks* marks)
{
    if (marks != nullptr)
        return std::make_unique<Router<R>>(path, *marks);
    return std::make_unique<R>(path);
}

// The chain, or null when its reader did not open the file. A chain that
// failed is gone before the next format is tried.
std::unique_ptr<PlayChain> if_open(std::unique_ptr<PlayChain> chain)
{
    FileReader* reader = chain->get_reader();
    if (reader == nullptr || !reader->is_open())
        return nullptr;
    return chain;
}

template <class R>
std::unique_ptr<PlayChain> try_reader_only(const std::wstring& path, const RouteMarks* marks, const wchar_t* format)
{
    return if_open(std::make_unique<PlayChainReaderOnly<R>>(make_reader<R>(path, marks), path, format));
}

template <class R, class D>
std::unique_ptr<PlayChain> try_reader_decoder(const std::wstring& path, const RouteMarks* marks,
                                              const wchar_t* format)
{
    return if_open(std::make_unique<PlayChainReaderDecoder<R, D>>(make_reader<R>(path, marks), path, format));
}

} // namespace

namespace {

bool is_missing_local_file(const std::wstring& path)
{
    if (path.empty() || path[0] != L'/')
        return false;
    os::FileAttributes file(path);
    return !file.exists() || file.is_folder;
}

} // namespace

std::unique_ptr<PlayChain> create_play_chain(const std::wstring& path, const RouteMarks* marks,
                                             const TagTitleReader& tag_title)
{
    if (auto chain = try_reader_only<FileReaderWAVPCM>(path, marks, kFormatPCM))
        return chain;
    if (auto chain = try_reader_decoder<FileReaderWAVADPCM, DecoderADPCM>(path, marks, kFormatADPCM))
        return chain;
    if (auto chain = try_reader_decoder<FileReaderWAVGSM, DecoderGSM>(path, marks, kFormatGSM))
        return chain;
    if (auto chain = try_reader_only<DecoderVorbis>(path, marks, kFormatVorbis))
        return chain;
    // Musepack has no routed form.
    if (marks == nullptr)
        if (auto chain = if_open(std::make_unique<PlayChainReaderOnly<DecoderMPC>>(
                std::make_unique<DecoderMPC>(path), path, kFormatMPC)))
            return chain;
    if (auto chain = if_open(std::make_unique<PlayChainMP3>(make_reader<FileReaderMP3>(path, marks), path,
                                                             kFormatMP3, tag_title)))
        return chain;
    // The media service last: it may take files every reader above refused.
    // Starting it costs a second or more, so a local file that isn't there
    // (or is a folder) doesn't get that far; addresses of streams do.
    if (marks == nullptr && !is_missing_local_file(path))
        return if_open(std::make_unique<PlayChainWMA>(std::make_unique<FileReaderWMA>(path), path, kFormatWMA));
    return nullptr;
}

} // namespace audio
