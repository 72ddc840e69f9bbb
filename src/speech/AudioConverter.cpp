#include "speech/AudioConverter.h"

#include <soxr.h>

#include <cstring>

namespace murmurly {

namespace {

bool channelsConvertible(int from, int to) {
    return from == to || to == 1 || from == 1;
}

} // namespace

std::unique_ptr<AudioConverter> AudioConverter::create(const AudioFormat& input, const AudioFormat& output) {
    if (!input.isValid() || !output.isValid() || !channelsConvertible(input.channels, output.channels))
        return nullptr;
    // The resampler always reads float: remixing happens before it, in float.
    const soxr_io_spec_t io =
        soxr_io_spec(SOXR_FLOAT32_I,
                     output.sampleType == AudioFormat::SampleType::float32 ? SOXR_FLOAT32_I : SOXR_INT16_I);
    // High quality costs little at speech rates (well over a thousand times real time) and keeps
    // aliasing out of the band the recognizer listens to.
    const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_HQ, 0);
    soxr_error_t error = nullptr;
    soxr_t resampler = soxr_create(input.sampleRate, output.sampleRate, unsigned(output.channels), &error,
                                   &io, &quality, nullptr);
    if (error || !resampler) {
        if (resampler) soxr_delete(resampler);
        return nullptr;
    }
    return std::unique_ptr<AudioConverter>(new AudioConverter(input, output, resampler));
}

AudioConverter::AudioConverter(const AudioFormat& input, const AudioFormat& output, soxr* resampler)
    : m_input(input)
    , m_output(output)
    , m_resampler(resampler) {
}

AudioConverter::~AudioConverter() {
    soxr_delete(m_resampler);
}

const float* AudioConverter::remix(const AudioBuffer& input, std::int64_t frames) {
    const int inChannels = m_input.channels;
    const int outChannels = m_output.channels;
    const bool isFloat = m_input.sampleType == AudioFormat::SampleType::float32;
    if (isFloat && inChannels == outChannels) return input.floatSamples();

    const std::size_t needed = std::size_t(frames) * std::size_t(outChannels);
    if (m_scratch.size() < needed) m_scratch.resize(needed);
    float* out = m_scratch.data();
    const float* f = input.floatSamples();
    const std::int16_t* s = input.int16Samples();
    auto sample = [&](std::int64_t index) { return isFloat ? f[index] : float(s[index]) / 32768.0f; };

    if (inChannels == outChannels) {
        for (std::size_t i = 0; i < needed; ++i)
            out[i] = sample(std::int64_t(i));
    } else if (outChannels == 1) {
        const float scale = 1.0f / float(inChannels);
        for (std::int64_t frame = 0; frame < frames; ++frame) {
            float sum = 0;
            for (int c = 0; c < inChannels; ++c)
                sum += sample(frame * inChannels + c);
            out[frame] = sum * scale;
        }
    } else { // one to many
        for (std::int64_t frame = 0; frame < frames; ++frame) {
            const float value = sample(frame);
            for (int c = 0; c < outChannels; ++c)
                out[frame * outChannels + c] = value;
        }
    }
    return out;
}

double AudioConverter::pendingOutputFrames() const {
    return soxr_delay(m_resampler);
}

AudioConverter::Result AudioConverter::convert(const AudioBuffer& input, AudioBuffer& output) {
    if (input.format() != m_input || output.format() != m_output)
        return {Status::error, QStringLiteral("buffer format does not match the converter")};
    const std::int64_t frames = input.frameLength();
    // A null input would ask the resampler to flush its tail and end the stream.
    static const float nothing = 0;
    const float* samples = frames > 0 ? remix(input, frames) : &nothing;

    const std::int64_t already = output.frameLength();
    const std::size_t room = std::size_t(output.frameCapacity() - already);
    std::byte* out = output.data() + std::size_t(already) * std::size_t(m_output.bytesPerFrame());

    std::size_t consumed = 0;
    std::size_t produced = 0;
    const soxr_error_t error =
        soxr_process(m_resampler, samples, std::size_t(frames), &consumed, out, room, &produced);
    if (error) return {Status::error, QString::fromUtf8(error)};
    output.setFrameLength(already + std::int64_t(produced));
    return {produced > 0 ? Status::haveData : Status::inputRanDry, {}, std::int64_t(consumed)};
}

} // namespace murmurly
