#!/usr/bin/env bash
# Makes the test files of the project into OUTDIR with the tools the tests
# compare against. Every file is made from scratch, so a test never depends on
# bytes typed by hand.
set -euo pipefail
out=${1:?usage: make_media.sh OUTDIR}
mkdir -p "$out"
cd "$out"

# A spoken clip: the material a voice recorder lives on.
espeak-ng -w speech_src.wav "Quillaphonics records speech without losing a second of it. One, two, three, four, five." 2>/dev/null
# Four short sentences, one a file, for voice activation to pause between.
i=1
for words in "Good morning." "Call me back." "It is late." "See you soon."; do
  espeak-ng -w "vas_sentence${i}.wav" "$words" 2>/dev/null
  i=$((i + 1))
done

# PCM WAVs across widths, channel counts and rates.
for rate in 8000 11025 22050 44100 48000; do
  sox -n -r "$rate" -b 16 -c 1 "pcm_s16_mono_${rate}.wav" synth 0.7 sine 440 gain -3
done
sox -n -r 22050 -b 8 -c 1 pcm_u8_mono_22050.wav synth 0.5 sine 300 gain -6
sox -n -r 11025 -b 8 -c 2 pcm_u8_stereo_11025.wav synth 0.5 sine 300 sine 500 gain -6
sox -n -r 44100 -b 16 -c 2 pcm_s16_stereo_44100.wav synth 1.0 sine 440 sine 660 gain -3
sox speech_src.wav -r 16000 -b 16 -c 1 pcm_s16_speech_16000.wav
sox speech_src.wav -r 44100 -b 16 -c 2 pcm_s16_speech_stereo_44100.wav

# Block codecs of the WAV family.
sox pcm_s16_speech_16000.wav -r 8000 -c 1 -e ms-adpcm adpcm_mono_8000.wav
sox pcm_s16_speech_stereo_44100.wav -r 22050 -e ms-adpcm adpcm_stereo_22050.wav
sox pcm_s16_speech_16000.wav -r 8000 -c 1 -e gsm-full-rate gsm_mono_8000.wav

# Compressed formats, each from the same speech.
lame --quiet -b 64 pcm_s16_speech_16000.wav mp3_cbr64_16000.mp3
lame --quiet -b 128 pcm_s16_speech_stereo_44100.wav mp3_cbr128_stereo_44100.mp3
oggenc --quiet -q 3 -o vorbis_q3_stereo_44100.ogg pcm_s16_speech_stereo_44100.wav
mpcenc --silent --overwrite pcm_s16_speech_stereo_44100.wav musepack_stereo_44100.mpc 2>/dev/null
ffmpeg -loglevel error -y -i pcm_s16_speech_stereo_44100.wav -c:a wmav2 -b:a 64k wma_stereo_44100.wma
ffmpeg -loglevel error -y -i pcm_s16_speech_stereo_44100.wav -c:a wmav1 -b:a 64k wma1_stereo_44100.wma
ffmpeg -loglevel error -y -i pcm_s16_speech_16000.wav -ar 22050 -c:a wmav2 -b:a 32k wma2_mono_22050.wma

# Vorbis at every quality from 0 to 8, mono and stereo, two seconds of the
# speech each; a chained stream of two links that share channels and rate,
# and one whose second link changes both.
sox pcm_s16_speech_stereo_44100.wav vorbis_src_stereo.wav trim 0 2
sox pcm_s16_speech_stereo_44100.wav -c 1 vorbis_src_mono.wav trim 0 2
for q in 0 1 2 3 4 5 6 7 8; do
  oggenc --quiet -s "$q" -q "$q" -o "vorbis_matrix_q${q}_mono_44100.ogg" vorbis_src_mono.wav
  oggenc --quiet -s "1$q" -q "$q" -o "vorbis_matrix_q${q}_stereo_44100.ogg" vorbis_src_stereo.wav
done
cat vorbis_matrix_q1_stereo_44100.ogg vorbis_matrix_q6_stereo_44100.ogg >vorbis_chained_stereo_44100.ogg
sox vorbis_src_mono.wav -r 22050 vorbis_src_mono_22050.wav
oggenc --quiet -s 99 -q 2 -o vorbis_link_mono_22050.ogg vorbis_src_mono_22050.wav
cat vorbis_link_mono_22050.ogg vorbis_matrix_q4_stereo_44100.ogg >vorbis_chained_changing.ogg
rm -f vorbis_src_*.wav

# MPEG audio from lame at every rate it makes, mono and stereo, CBR from 8 to
# 320 kbit/s, each with the LAME Info frame; sources peak at -6 dBFS so that a
# decode never clips. Then tags of both versions, other layers, 12 kHz and free
# format, and tags written by lame and ffmpeg.
for spec in 8000:8:1 8000:64:2 11025:16:1 11025:48:2 16000:24:1 16000:160:2 \
            22050:32:1 22050:96:2 24000:40:1 24000:128:2 32000:48:1 32000:320:2 \
            44100:64:1 44100:128:2 48000:96:1 48000:320:2; do
  IFS=: read -r rate kbps ch <<<"$spec"
  mode=$([ "$ch" = 1 ] && echo mono || echo stereo)
  sox -n -r "$rate" -b 16 -c "$ch" lame_src.wav synth 0.5 sine 200-$((rate * 2 / 5)) pinknoise norm -6
  lame --quiet -b "$kbps" lame_src.wav "lame_${rate}_${kbps}_${mode}.mp3"
done
sox -n -r 44100 -b 16 -c 2 lame_src.wav synth 0.5 sine 300-6000 pinknoise norm -6
lame --quiet -b 128 --tt Tagged --id3v1-only lame_src.wav lame_44100_128_stereo_id3v1.mp3
lame --quiet -b 128 --tt Tagged --id3v2-only --pad-id3v2-size 3000 lame_src.wav lame_44100_128_stereo_id3v2.mp3
lame --quiet -b 112 --tt Tagged --ta Both --add-id3v2 lame_src.wav lame_44100_112_stereo_id3both.mp3
lame --quiet -b 64 -t lame_src.wav lame_44100_64_stereo_noinfo.mp3
sox -n -r 44100 -b 16 -c 2 lame_src.wav synth 4 sine 300-6000 pinknoise norm -6
lame --quiet -b 160 lame_src.wav long_44100_160_stereo.mp3
ffmpeg -loglevel error -y -i lame_src.wav -t 1 -c:a mp2 -b:a 192k layer2_44100_stereo.mp2
ffmpeg -loglevel error -y -i lame_src.wav -t 1 -ar 22050 -c:a mp2 -b:a 64k layer2_22050_stereo.mp2
lame --quiet --freeformat -b 400 lame_src.wav freeformat_44100.mp3
sox -V1 -D -n -r 44100 -b 16 -c 2 lame_src.wav synth 0.5 sawtooth 220 sawtooth 330 gain -n -0.5
lame --quiet -b 128 lame_src.wav loud_44100_128_stereo.mp3
sox -n -r 12000 -b 16 -c 1 lame_src.wav synth 0.5 sine 440 norm -6
lame --quiet -b 32 lame_src.wav rate12000_mono.mp3
sox -n -r 22050 -b 16 -c 1 lame_src.wav synth 0.3 sine 440 norm -6
lame --quiet -b 32 --tt "Caf$(printf '\xc3\xa9') Title" --ta "Lame Artist" --tl "Lame Album" --ty 1987 \
  --tc "Lame comment" --tn 9 --tg 17 --id3v1-only lame_src.wav tag_lame_v1.mp3
ffmpeg -loglevel error -y -i lame_src.wav -c:a libmp3lame -b:a 32k -write_id3v1 1 \
  -metadata title="Ffmpeg Title" -metadata artist="Ffmpeg Artist" -metadata album="Ffmpeg Album" \
  -metadata date=2004 -metadata comment="Ffmpeg comment" -metadata track=12 -metadata genre=Jazz \
  tag_ffmpeg_v1.mp3
rm -f lame_src.wav

# WAV readers and block codecs: Microsoft ADPCM at every block size sox makes
# (256 to 2048 bytes a channel), and ADPCM and GSM from ffmpeg, whose files
# put a LIST chunk before "data". Exact sources for the encoders, coded with
# no dither, so that a coder of ours sees the samples sox's coder saw.
sox pcm_s16_speech_16000.wav -r 8000 pcm_s16_speech_8000.wav
for rate in 22050 44100 96000; do
  sox pcm_s16_speech_16000.wav -r "$rate" -e ms-adpcm "adpcm_mono_${rate}.wav" trim 0 2
done
for rate in 8000 44100 96000; do
  sox pcm_s16_speech_stereo_44100.wav -r "$rate" -e ms-adpcm "adpcm_stereo_${rate}.wav" trim 0 2
done
ffmpeg -loglevel error -y -i pcm_s16_speech_8000.wav -c:a adpcm_ms adpcm_ffmpeg_mono_8000.wav
ffmpeg -loglevel error -y -i pcm_s16_speech_8000.wav -c:a libgsm_ms gsm_ffmpeg_mono_8000.wav
sox -D pcm_s16_speech_8000.wav -e gsm-full-rate gsm_sox_of_speech_8000.wav
sox -D pcm_s16_speech_16000.wav -e ms-adpcm adpcm_sox_of_speech_16000.wav
sox -D pcm_s16_speech_stereo_44100.wav -e ms-adpcm adpcm_sox_of_speech_stereo_44100.wav
# PCM with three channels as format tag 1; the same, and 24 bits, as sox
# writes them by default (format tag 0xFFFE), which no reader takes.
sox -n -t wavpcm -r 8000 -b 16 -c 3 pcm_s16_3ch_8000.wav synth 0.3 sine 300 sine 500 sine 700 gain -6
sox -n -r 8000 -b 16 -c 3 refused_extensible_3ch.wav synth 0.3 sine 300 sine 500 sine 700 gain -6
sox -n -r 8000 -b 24 -c 1 refused_extensible_24bit.wav synth 0.3 sine 300 gain -6
# PCM with other chunks: ffmpeg puts a LIST (and a bext) chunk between "fmt "
# and "data", and with -rf64 a JUNK chunk before "fmt ".
ffmpeg -loglevel error -y -i pcm_s16_mono_22050.wav -c:a copy list_pcm_s16_mono_22050.wav
ffmpeg -loglevel error -y -i pcm_s16_mono_22050.wav -c:a copy -write_bext 1 bext_pcm_s16_mono_22050.wav
ffmpeg -loglevel error -y -i pcm_s16_mono_22050.wav -c:a copy -rf64 auto refused_junk_before_fmt.wav
# No samples at all: a header of 44 bytes.
sox -n -r 8000 -b 16 -c 1 empty_pcm_s16_8000.wav trim 0 0

# Signals for the sound output with no frame equal to the device's silence
# (0 for 16-bit, 128 for 8-bit): sines riding on a DC offset.
sox -D -n -r 44100 -b 16 -c 2 player_s16_stereo_44100.wav synth 0.5 sine 440 sine 660 vol 0.4 dcshift 0.5
sox -D -n -r 22050 -b 16 -c 1 player_s16_mono_22050.wav synth 0.5 sine 300 vol 0.4 dcshift -0.5
sox -D -n -r 11025 -b 8 -c 2 player_u8_stereo_11025.wav synth 0.5 sine 300 sine 500 vol 0.4 dcshift 0.5

touch .made
