#include "audio/record_chain.h"

#include "audio/adpcm_codec.h"
#include "audio/encoder_mp3.h"
#include "audio/file_reader_mp3.h"
#include "audio/file_reader_wav.h"
#include "audio/file_writer_mp3.h"
#include "audio/file_writer_wav.h"
#include "audio/gsm_codec.h"
#include "audio/play_chain.h"

namespace audio {

namespace {

// The readers of the play chains are their formats' providers of coded data.
template <class R, class C>
bool attach(FileReader& reader, C& writer)
{
    R* typed = dynamic_cast<R*>(&reader);
    if (typed == nullptr)
        return false;
    connect(*typed, &writer);
    return true;
}

// Linear PCM: the writer takes the records as they come.
class RecordChainWAV : public RecordChain {
public:
    RecordChainWAV(const std::wstring& path, bool append, const os::RecordingJournal* journal)
        : writer(std::make_unique<FileWriterWAVPCM>(path, append, journal))
    {
    }
    Encoder* get_encoder() override { return writer.get(); }
    Consumer<PCMData>* get_consumer() override { return writer.get(); }
    FileWriter* get_writer() override { return writer.get(); }
    std::wstring get_format() override { return kFormatPCM; }
    bool attach_reader(FileReader& reader) override { return attach<FileReaderWAVPCM>(reader, *writer); }

private:
    std::unique_ptr<FileWriterWAVPCM> writer;
};

// An encoder in front of its writer; the encoder takes the PCM.
template <class E, class W, class R>
class RecordChainBase : public RecordChain {
public:
    RecordChainBase(std::unique_ptr<E> encoder_, const std::wstring& path, const wchar_t* format_, bool append,
                    const os::RecordingJournal* journal)
        : writer(std::make_unique<W>(path, append, journal)), encoder(std::move(encoder_)), format(format_)
    {
        connect(*encoder, writer.get());
    }
    ~RecordChainBase() override
    {
        // What the encoder still holds on going is dropped, not written.
        connect(*encoder, nullptr);
        encoder.reset();
        writer.reset();
    }
    Encoder* get_encoder() override { return encoder.get(); }
    Consumer<PCMData>* get_consumer() override { return encoder.get(); }
    FileWriter* get_writer() override { return writer.get(); }
    std::wstring get_format() override { return format; }
    bool attach_reader(FileReader& reader) override { return attach<R>(reader, *writer); }

private:
    std::unique_ptr<W> writer;
    std::unique_ptr<E> encoder;
    std::wstring format;
};

using RecordChainMP3 = RecordChainBase<EncoderMP3, FileWriterMP3, FileReaderMP3>;
using RecordChainADPCM = RecordChainBase<EncoderADPCM, FileWriterWAVADPCM, FileReaderWAVADPCM>;
using RecordChainGSM = RecordChainBase<EncoderGSM, FileWriterWAVGSM, FileReaderWAVGSM>;

} // namespace

std::unique_ptr<RecordChain> create_record_chain(const std::wstring& path, const std::wstring& format,
                                                 std::int32_t, std::int32_t, std::int32_t, std::int32_t bit_rate,
                                                 bool append, const os::RecordingJournal* journal)
{
    if (format == kFormatPCM)
        return std::make_unique<RecordChainWAV>(path, append, journal);
    if (format == kFormatMP3)
        return std::make_unique<RecordChainMP3>(std::make_unique<EncoderMP3>(bit_rate), path, kFormatMP3, append,
                                                journal);
    if (format == kFormatADPCM)
        return std::make_unique<RecordChainADPCM>(std::make_unique<EncoderADPCM>(), path, kFormatADPCM, append,
                                                  journal);
    if (format == kFormatGSM)
        return std::make_unique<RecordChainGSM>(std::make_unique<EncoderGSM>(), path, kFormatGSM, append, journal);
    return nullptr;
}

std::unique_ptr<RecordChain> create_record_chain_like(const std::wstring& model_path,
                                                      const std::wstring& target_path, bool append,
                                                      std::int32_t* out_length, const os::RecordingJournal* journal)
{
    std::wstring format;
    std::int32_t channels = 0, bits = 0, rate = 0, bit_rate = 0;
    {
        std::unique_ptr<PlayChain> model = create_play_chain(model_path, nullptr);
        if (!model || !model->get_reader())
            return nullptr;
        FileReader* r = model->get_reader();
        format = model->get_format();
        channels = r->get_channels();
        bits = r->get_bits();
        rate = r->get_rate();
        bit_rate = r->get_bitrate();
        if (out_length)
            *out_length = r->get_length();
    }
    std::unique_ptr<RecordChain> chain =
        create_record_chain(target_path, format, channels, bits, rate, bit_rate, append, journal);
    if (chain && !chain->get_writer()->is_good())
        return nullptr;
    return chain;
}

std::unique_ptr<RecorderPCM> create_recorder_like(const std::wstring& path)
{
    std::int32_t channels = 0, bits = 0, rate = 0;
    {
        std::unique_ptr<PlayChain> model = create_play_chain(path, nullptr);
        if (!model || !model->get_reader())
            return nullptr;
        channels = model->get_reader()->get_channels();
        bits = model->get_reader()->get_bits();
        rate = model->get_reader()->get_rate();
    }
    auto recorder = std::make_unique<RecorderPCM>(static_cast<std::uint32_t>(channels),
                                                  static_cast<std::uint32_t>(rate), static_cast<std::uint32_t>(bits));
    if (!recorder->is_good())
        return nullptr;
    return recorder;
}

} // namespace audio
