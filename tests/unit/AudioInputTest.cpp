#include "speech/AudioInput.h"
#include "FakeCaptureDevice.h"
#include "LogCapture.h"
#include "speech/AudioConverter.h"
#include "speech/MurmurlyError.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <vector>

using namespace murmurly;
using murmurly::testing::FakeCaptureDevice;
using murmurly::testing::LogCapture;

namespace {

const AudioFormat mic48kStereo = AudioFormat::float32(48000, 2);
const AudioFormat speech16kMono = AudioFormat::int16(16000, 1);

// `frames` frames of a 440 Hz tone in `format`, continuing at sample `offset`.
AudioBuffer tone(const AudioFormat& format, std::int64_t frames, std::int64_t offset = 0) {
    AudioBuffer buffer = *AudioBuffer::allocate(format, frames);
    buffer.setFrameLength(frames);
    for (std::int64_t i = 0; i < frames; ++i) {
        const double t = double(offset + i) / format.sampleRate;
        const float value = float(0.5 * std::sin(2 * std::numbers::pi * 440 * t));
        for (int c = 0; c < format.channels; ++c) {
            if (format.sampleType == AudioFormat::SampleType::float32)
                buffer.floatSamples()[i * format.channels + c] = value;
            else
                buffer.int16Samples()[i * format.channels + c] = std::int16_t(value * 32767);
        }
    }
    return buffer;
}

struct Harness {
    FakeCaptureDevice* device;
    AudioInput input;
    std::vector<AnalyzerInput> received;

    explicit Harness(AudioFormat micFormat = mic48kStereo)
        : device(new FakeCaptureDevice(micFormat))
        , input(std::unique_ptr<CaptureDevice>(device)) {}

    void start(const AudioFormat& target = speech16kMono) {
        input.start(target, [this](AnalyzerInput in) { received.push_back(std::move(in)); });
    }
};

} // namespace

TEST(AudioInput, A48kBufferOf4096FramesConvertedTo16kGetsRoomFor1381Frames) {
    EXPECT_EQ(AudioInput::outputCapacity(16000.0 / 48000.0, 4096), 1365 + 16);

    // And the converter really fits a captured buffer into that room, every time.
    auto converter = AudioConverter::create(mic48kStereo, speech16kMono);
    ASSERT_TRUE(converter);
    std::int64_t produced = 0;
    for (int i = 0; i < 50; ++i) {
        AudioBuffer out = *AudioBuffer::allocate(speech16kMono, AudioInput::outputCapacity(1.0 / 3.0, 4096));
        EXPECT_EQ(out.frameCapacity(), 1381);
        const AudioConverter::Result result = converter->convert(tone(mic48kStereo, 4096, i * 4096), out);
        EXPECT_NE(result.status, AudioConverter::Status::error);
        EXPECT_EQ(result.inputFramesUsed, 4096) << "buffer " << i;
        EXPECT_LE(out.frameLength(), 1381);
        produced += out.frameLength();
    }
    // The resampler releases its output in blocks, but nothing is lost: what has come out plus
    // what it still holds is all of the input, and it holds less than 40 ms.
    EXPECT_NEAR(double(produced) + converter->pendingOutputFrames(), 50 * 4096 / 3.0, 1.0);
    EXPECT_LT(converter->pendingOutputFrames(), 0.040 * 16000);
}

TEST(AudioInput, OnlyBuffersThatYieldOutputAreCountedAndTheFirstAndEveryTwentiethAreLogged) {
    LogCapture log;
    Harness h;
    h.start();
    EXPECT_EQ(h.device->framesPerBuffer(), 4096);

    AudioBuffer empty = *AudioBuffer::allocate(mic48kStereo, 4096); // frame length 0: converts to nothing
    h.device->deliver(empty);
    h.device->deliver(empty);
    EXPECT_EQ(h.input.bufferCount(), 0);
    EXPECT_TRUE(h.received.empty());

    for (int i = 0; i < 45; ++i)
        h.device->deliver(tone(mic48kStereo, 4096, i * 4096));
    EXPECT_EQ(h.input.bufferCount(), 45);
    EXPECT_EQ(h.received.size(), 45u);
    for (const AnalyzerInput& in : h.received) {
        EXPECT_EQ(in.buffer.format(), speech16kMono);
        EXPECT_GT(in.buffer.frameLength(), 0);
    }

    const QStringList progress = log.matching(QStringLiteral("Audio buffer #"));
    ASSERT_EQ(progress.size(), 3);
    EXPECT_TRUE(progress[0].startsWith(QStringLiteral("Audio buffer #1, ")));
    EXPECT_TRUE(progress[1].startsWith(QStringLiteral("Audio buffer #21, ")));
    EXPECT_TRUE(progress[2].startsWith(QStringLiteral("Audio buffer #41, ")));
    EXPECT_EQ(progress[1], QStringLiteral("Audio buffer #21, %1 frames @ 16000.000000 Hz")
                               .arg(h.received[20].buffer.frameLength()));
    for (const auto& entry : log.entries())
        if (entry.message.startsWith(QStringLiteral("Audio buffer #"))) {
            EXPECT_EQ(entry.type, QtDebugMsg);
        }
}

TEST(AudioInput, AFailedConversionDropsThatBufferAndCaptureGoesOn) {
    LogCapture log;
    Harness h;
    h.start();
    h.device->deliver(tone(mic48kStereo, 4096));
    // A buffer that is not in the format the device announced cannot be converted.
    h.device->deliver(tone(AudioFormat::float32(44100, 2), 4096));
    h.device->deliver(tone(mic48kStereo, 4096, 4096));
    EXPECT_EQ(h.input.bufferCount(), 2);
    EXPECT_EQ(h.received.size(), 2u);
    const QStringList errors = log.messages(QtCriticalMsg);
    ASSERT_EQ(errors.size(), 1);
    EXPECT_TRUE(errors[0].startsWith(QStringLiteral("Audio conversion failed: "))) << errors[0].toStdString();
}

TEST(AudioInput, StopWithoutStartLogsZeroBuffersAndLeavesTheObjectReusable) {
    LogCapture log;
    Harness h;
    h.input.stop();
    EXPECT_EQ(log.messages(QtInfoMsg), QStringList{QStringLiteral("Audio stopped after 0 buffers")});

    h.start();
    for (int i = 0; i < 3; ++i)
        h.device->deliver(tone(mic48kStereo, 4096, i * 4096));
    h.input.stop();
    EXPECT_EQ(h.received.size(), 3u);
    EXPECT_EQ(log.messages(QtInfoMsg).last(), QStringLiteral("Audio stopped after 3 buffers"));

    // A second stop reports the last capture's count; the count only resets at the next start.
    h.input.stop();
    EXPECT_EQ(log.messages(QtInfoMsg).last(), QStringLiteral("Audio stopped after 3 buffers"));
    EXPECT_EQ(h.input.bufferCount(), 3);
    h.start();
    EXPECT_EQ(h.input.bufferCount(), 0);
    h.device->deliver(tone(mic48kStereo, 4096));
    EXPECT_EQ(h.input.bufferCount(), 1);
}

TEST(AudioInput, LateCaptureCallbacksAfterStopFindNoConverterAndHandNothingOn) {
    Harness h;
    h.start();
    h.device->deliver(tone(mic48kStereo, 4096));
    h.input.stop();
    EXPECT_FALSE(h.device->isRunning());
    h.device->deliver(tone(mic48kStereo, 4096, 4096));
    EXPECT_EQ(h.received.size(), 1u);
    EXPECT_EQ(h.input.bufferCount(), 1);
}

TEST(AudioInput, CaptureCallbacksAfterTheObjectIsGoneAreDropped) {
    // The device outlives the input here, as a capture thread still holding its callback would.
    struct Forwarding final : CaptureDevice {
        std::shared_ptr<FakeCaptureDevice> fake;
        AudioFormat inputFormat() override { return fake->inputFormat(); }
        void start(std::int64_t frames, BufferHandler onBuffer) override {
            fake->start(frames, std::move(onBuffer));
        }
        void stop() override { fake->stop(); }
    };
    auto fake = std::make_shared<FakeCaptureDevice>(mic48kStereo);
    int handedOn = 0;
    {
        auto forwarding = std::make_unique<Forwarding>();
        forwarding->fake = fake;
        AudioInput input{std::move(forwarding)};
        input.start(speech16kMono, [&](AnalyzerInput) { ++handedOn; });
        fake->deliver(tone(mic48kStereo, 4096));
        EXPECT_EQ(handedOn, 1);
    }
    fake->deliver(tone(mic48kStereo, 4096, 4096));
    EXPECT_EQ(handedOn, 1);
}

TEST(AudioInput, AnUnconvertibleMicrophoneFormatThrowsAudioConverterUnavailable) {
    Harness h(AudioFormat::float32(48000, 6));
    try {
        h.start(AudioFormat::int16(16000, 2));
        FAIL() << "start should have thrown";
    } catch (const MurmurlyError& error) {
        EXPECT_EQ(error.code(), MurmurlyError::Code::audioConverterUnavailable);
        EXPECT_EQ(error.description(),
                  QStringLiteral("Could not create an audio converter for the mic format."));
    }
    // Nothing else was changed: the device was never started.
    EXPECT_EQ(h.device->starts(), 0);
}

TEST(AudioInput, TheDevicesOwnStartErrorIsThrownUnchanged) {
    Harness h;
    h.device->failStartWith(QStringLiteral("No audio server is running."));
    try {
        h.start();
        FAIL() << "start should have thrown";
    } catch (const CaptureError& error) {
        EXPECT_EQ(error.description(), QStringLiteral("No audio server is running."));
    }
    h.input.stop();
    EXPECT_EQ(h.device->stops(), 1);
}

TEST(AudioInput, ConvertingBufferByBufferGivesTheSameSignalAsConvertingItWhole) {
    const std::int64_t total = 4096 * 12;
    const AudioBuffer whole = tone(mic48kStereo, total);

    auto oneShot = AudioConverter::create(mic48kStereo, AudioFormat::float32(16000, 1));
    AudioBuffer all = *AudioBuffer::allocate(AudioFormat::float32(16000, 1), total);
    oneShot->convert(whole, all);

    auto streaming = AudioConverter::create(mic48kStereo, AudioFormat::float32(16000, 1));
    std::vector<float> pieces;
    for (std::int64_t offset = 0; offset < total; offset += 4096) {
        AudioBuffer out =
            *AudioBuffer::allocate(AudioFormat::float32(16000, 1), AudioInput::outputCapacity(1.0 / 3, 4096));
        streaming->convert(tone(mic48kStereo, 4096, offset), out);
        pieces.insert(pieces.end(), out.floatSamples(), out.floatSamples() + out.frameLength());
    }
    ASSERT_NEAR(double(pieces.size()) + streaming->pendingOutputFrames(), total / 3.0, 1.0);
    const std::size_t n = std::min<std::size_t>(pieces.size(), std::size_t(all.frameLength()));
    double maxDifference = 0;
    for (std::size_t i = 0; i < n; ++i)
        maxDifference = std::max(maxDifference, double(std::abs(pieces[i] - all.floatSamples()[i])));
    EXPECT_LT(maxDifference, 1e-4);

    // The tone comes through at its level: the amplitude of 0.5 stays (no loss at buffer joins).
    float peak = 0;
    for (std::size_t i = 200; i < pieces.size(); ++i)
        peak = std::max(peak, std::abs(pieces[i]));
    EXPECT_NEAR(peak, 0.5, 0.01);
}

TEST(AudioInput, StereoIsMixedDownAndIntegerMicrophonesConvertToo) {
    // Left at +0.5, right at -0.5: the mono mix is silence.
    AudioBuffer opposite = *AudioBuffer::allocate(mic48kStereo, 4096);
    opposite.setFrameLength(4096);
    for (int i = 0; i < 4096; ++i) {
        opposite.floatSamples()[2 * i] = 0.5f;
        opposite.floatSamples()[2 * i + 1] = -0.5f;
    }
    auto converter = AudioConverter::create(mic48kStereo, speech16kMono);
    AudioBuffer out = *AudioBuffer::allocate(speech16kMono, 1381);
    converter->convert(opposite, out);
    for (std::int64_t i = 0; i < out.frameLength(); ++i)
        EXPECT_LE(std::abs(out.int16Samples()[i]), 1);

    auto fromInt = AudioConverter::create(AudioFormat::int16(44100, 1), speech16kMono);
    ASSERT_TRUE(fromInt);
    std::int64_t produced = 0;
    for (int i = 0; i < 10; ++i) {
        AudioBuffer o =
            *AudioBuffer::allocate(speech16kMono, AudioInput::outputCapacity(16000.0 / 44100, 4096));
        fromInt->convert(tone(AudioFormat::int16(44100, 1), 4096, i * 4096), o);
        produced += o.frameLength();
    }
    EXPECT_NEAR(double(produced) + fromInt->pendingOutputFrames(), 40960 * 16000.0 / 44100, 1.0);
}
