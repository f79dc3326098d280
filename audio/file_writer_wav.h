#pragma once

#include "audio/encoder.h"
#include "audio/file_writer.h"
#include "audio/pipeline.h"
#include "audio/records.h"
#include "audio/recording_guard.h"
#include "audio/wav_info.h"
#include "os/file.h"
#include "os/recording_journal.h"

#include <cstdint>
#include <memory>
#include <string>

// The writers of WAV files: linear PCM, Microsoft ADPCM and GSM 06.10. Each
// holds its header in memory and writes it twice: with sizes of 0 when the
// first record makes the file, and with the real sizes when the writer goes.
// A write that stops short (a full card) is cut back at once to the last
// whole sample frame or block, and the writer goes quiet for good; the file
// on the card stays valid with every whole unit in it. A writer given the
// recordings journal writes a recording: its file is listed there while it is
// written, and at least once a second its header's sizes are patched and the
// data made durable, so a crash loses at most the last second.
// Threads: records arrive on the writer's thread (the active buffer's, or the
// main thread during a merge or a conversion); is_good and get_position are
// polled on the main thread. All of it runs under the stage lock. Owned by
// the record chain; deleting the writer closes the file.
namespace audio {

template <class Info, class Data>
class FileWriterWAV : public Processor<Data>, public FileWriter {
public:
    // Writes the final header over the first, when a file was made or
    // continued, and closes it.
    ~FileWriterWAV() override;

    bool is_good() override;

protected:
    // Without `append` nothing touches the disk until the first record.
    // With it, `path` is opened for reading and writing, repaired if a crash
    // left audio behind what its header claims, its header read, and the
    // file cut back to the end of its data chunk, where writing goes on; a
    // file that doesn't read as this format leaves the writer failed and the
    // file as it was. With a `journal` the file is a recording's.
    FileWriterWAV(const std::wstring& path, bool append, const os::RecordingJournal* journal);

    // Takes the format of the file from its first record; false when the
    // record can't start a file of this kind (no file is made then).
    virtual bool set_format(const Data& in) = 0;
    // Writes one record's whole units; false when the write stopped short.
    virtual bool write_data(const Data& in) = 0;

    // Makes the file at the first record, then writes; the output is the
    // input, so the writer can stand inside a longer chain.
    void process(Data& out, const Data& in) override;

    // Writes `bytes` at the end of the data; the bytes that went out.
    std::size_t write_bytes(const liba::ByteBlock& bytes);
    // After a write of `written` bytes, of which `whole` make whole units
    // (already counted in `info.data_size`): true when all `size` bytes
    // went out; otherwise false, and a part of a unit is cut away.
    bool finish_write(std::size_t written, std::size_t whole, std::size_t size);

    Info info;
    std::wstring path;
    std::unique_ptr<os::File> file; // null until the first record, unless appending
    bool good = false;

private:
    // Cuts the file at the end of the whole units and stands there.
    bool cut_at_data_end();
    // Reads the header bytes of a continued file; false on a short read.
    bool read_header();
    // Keeps `bytes` as the file's header and finds its "fact" chunk; false
    // when a coded format has none.
    bool keep_header(std::string bytes);
    // Writes the header with the sizes as they stand over the first one.
    void patch_header();
    // Patches the header and makes the file durable, when the recording's
    // second has come.
    void sync_if_due();

    // The header as it stands in the file, up to the audio: as made here or
    // as read from a continued file. It is written back with its sizes
    // patched, so chunks this writer would not have made (a LIST before
    // "data") keep their place. Empty when nothing may be written back.
    std::string header;
    // Offset of the sample count in its "fact" chunk; 0 for PCM.
    std::size_t fact_at = 0;
    // Null unless the file is a recording's.
    std::unique_ptr<RecordingGuard> guard;
};

// Linear PCM, format tag 1, in the format of its first record: 8-bit
// unsigned or 16-bit signed, any channels and rate. Records of another
// format are dropped. Position: bytes of the data chunk.
class FileWriterWAVPCM : public FileWriterWAV<WAVInfoPCM, PCMData>, public Encoder {
public:
    FileWriterWAVPCM(const std::wstring& path, bool append, const os::RecordingJournal* journal = nullptr);

    std::int32_t get_position() override;
    // Bytes per second x 8; 0 until the format is known.
    std::int32_t get_bitrate() override;

protected:
    bool set_format(const PCMData& in) override;
    bool write_data(const PCMData& in) override;

private:
    std::int32_t sample_count = 0; // sample frames written
};

// Microsoft ADPCM, format tag 2, 1 or 2 channels, in the block size of its
// first record; blocks of another format or size are dropped. Position:
// blocks.
class FileWriterWAVADPCM : public FileWriterWAV<WAVInfoADPCM, ADPCMData> {
public:
    FileWriterWAVADPCM(const std::wstring& path, bool append, const os::RecordingJournal* journal = nullptr);

    std::int32_t get_position() override;

protected:
    bool set_format(const ADPCMData& in) override;
    bool write_data(const ADPCMData& in) override;

private:
    std::int32_t block_count = 0;
};

// GSM 06.10, format tag 49: 8000 Hz mono in blocks of 65 bytes and 320
// samples. Position: blocks.
class FileWriterWAVGSM : public FileWriterWAV<WAVInfoGSM, GSMData> {
public:
    FileWriterWAVGSM(const std::wstring& path, bool append, const os::RecordingJournal* journal = nullptr);

    std::int32_t get_position() override;

protected:
    bool set_format(const GSMData& in) override;
    bool write_data(const GSMData& in) override;

private:
    std::int32_t block_count = 0;
};

extern template class FileWriterWAV<WAVInfoPCM, PCMData>;
extern template class FileWriterWAV<WAVInfoADPCM, ADPCMData>;
extern template class FileWriterWAV<WAVInfoGSM, GSMData>;

} // namespace audio
