#include "speech/FileTranscriber.h"

#include "speech/MurmurlyError.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <vector>

using namespace murmurly;

namespace {

struct Collected {
    std::vector<std::int64_t> frames;
    std::vector<std::int16_t> samples; // all buffers joined (int16 target)
    AudioFormat format;
};

Collected convert(const AudioBuffer& audio, const AudioFormat& target) {
    Collected collected;
    FileTranscriber::convert(audio, target, [&](AudioBuffer buffer) {
        collected.format = buffer.format();
        collected.frames.push_back(buffer.frameLength());
        const std::int64_t n = buffer.frameLength() * buffer.format().channels;
        collected.samples.insert(collected.samples.end(), buffer.int16Samples(), buffer.int16Samples() + n);
    });
    return collected;
}

// `seconds` of a sine at `hz`, in every channel, as float samples at half scale.
AudioBuffer sine(double rate, int channels, double hz, double seconds) {
    const auto frames = std::int64_t(rate * seconds);
    AudioBuffer buffer = *AudioBuffer::allocate(AudioFormat::float32(rate, channels), frames);
    buffer.setFrameLength(frames);
    for (std::int64_t i = 0; i < frames; ++i)
        for (int c = 0; c < channels; ++c)
            buffer.floatSamples()[i * channels + c] =
                float(0.5 * std::sin(2 * std::numbers::pi * hz * double(i) / rate));
    return buffer;
}

// Upward zero crossings per second over the middle of the signal (away from filter edges).
double frequencyOf(const std::vector<std::int16_t>& samples, double rate) {
    const std::size_t begin = samples.size() / 4;
    const std::size_t end = samples.size() * 3 / 4;
    int crossings = 0;
    for (std::size_t i = begin + 1; i < end; ++i)
        if (samples[i - 1] < 0 && samples[i] >= 0) ++crossings;
    return crossings * rate / double(end - begin);
}

} // namespace

TEST(FileTranscriber, BuffersAreTheLengthA48kMicrophoneDelivers) {
    EXPECT_EQ(FileTranscriber::framesPerBuffer(48000), 4096);
    EXPECT_EQ(FileTranscriber::framesPerBuffer(16000), 1365);
    EXPECT_EQ(FileTranscriber::framesPerBuffer(44100), 3763);
    EXPECT_EQ(FileTranscriber::framesPerBuffer(1), 1);
}

TEST(FileTranscriber, AudioAlreadyInTheRecognizersFormatIsPassedOnUnchanged) {
    const std::int64_t frames = 16000 * 2 + 7;
    AudioBuffer audio = *AudioBuffer::allocate(AudioFormat::int16(16000, 1), frames);
    audio.setFrameLength(frames);
    for (std::int64_t i = 0; i < frames; ++i)
        audio.int16Samples()[i] = std::int16_t((i * 7919) % 65536 - 32768);

    const Collected out = convert(audio, AudioFormat::int16(16000, 1));
    EXPECT_EQ(out.format, AudioFormat::int16(16000, 1));
    ASSERT_EQ(out.samples.size(), std::size_t(frames));
    EXPECT_TRUE(std::equal(out.samples.begin(), out.samples.end(), audio.int16Samples()));
    // Whole buffers of 1365 frames, then the rest.
    ASSERT_EQ(out.frames.size(), 24u);
    for (std::size_t i = 0; i + 1 < out.frames.size(); ++i)
        EXPECT_EQ(out.frames[i], 1365);
    EXPECT_EQ(out.frames.back(), frames - 23 * 1365);
}

TEST(FileTranscriber, OtherRatesAndChannelsAreConvertedToExactlyTheirDurationWithTheTailFlushed) {
    for (const auto& [rate, channels] :
         {std::pair{48000.0, 2}, std::pair{44100.0, 1}, std::pair{8000.0, 6}}) {
        const AudioBuffer audio = sine(rate, channels, 440, 1.5);
        const Collected out = convert(audio, AudioFormat::int16(16000, 1));
        EXPECT_EQ(out.format, AudioFormat::int16(16000, 1));
        EXPECT_EQ(std::int64_t(out.samples.size()), std::llround(double(audio.frameLength()) * 16000 / rate))
            << rate << " Hz";
        EXPECT_NEAR(frequencyOf(out.samples, 16000), 440, 5) << rate << " Hz";
        // The end of the signal is there, not zeros the resampler held back.
        int loudAtTheEnd = 0;
        for (std::size_t i = out.samples.size() - 40; i < out.samples.size(); ++i)
            if (std::abs(out.samples[i]) > 3000) ++loudAtTheEnd;
        EXPECT_GT(loudAtTheEnd, 10) << rate << " Hz";
    }
}

TEST(FileTranscriber, ChannelLayoutsTheConverterCannotMixAreRefused) {
    const AudioBuffer audio = sine(16000, 3, 440, 0.1);
    try {
        FileTranscriber::convert(audio, AudioFormat::int16(16000, 2), [](AudioBuffer) {});
        FAIL() << "convert should have thrown";
    } catch (const MurmurlyError& error) {
        EXPECT_EQ(error.code(), MurmurlyError::Code::audioConverterUnavailable);
    }
}
