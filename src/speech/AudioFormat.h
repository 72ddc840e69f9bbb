#pragma once

#include <QString>

namespace murmurly {

// Interleaved PCM: sample rate, channel count and sample type. Devices deliver float samples;
// recognizers usually want 16-bit integers.
struct AudioFormat {
    enum class SampleType { float32, int16 };

    double sampleRate = 0;
    int channels = 0;
    SampleType sampleType = SampleType::float32;

    static AudioFormat float32(double sampleRate, int channels) {
        return {sampleRate, channels, SampleType::float32};
    }
    static AudioFormat int16(double sampleRate, int channels) {
        return {sampleRate, channels, SampleType::int16};
    }

    int bytesPerSample() const { return sampleType == SampleType::float32 ? 4 : 2; }
    int bytesPerFrame() const { return bytesPerSample() * channels; }
    bool isValid() const { return sampleRate > 0 && channels > 0; }

    // For logs and test messages: "48000 Hz, 2 ch, float32".
    QString toString() const;

    friend bool operator==(const AudioFormat&, const AudioFormat&) = default;
};

} // namespace murmurly
