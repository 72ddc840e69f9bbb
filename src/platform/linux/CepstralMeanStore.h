#pragma once

#include <QString>

#include <optional>
#include <vector>

namespace murmurly {

// The recognizer's running estimate of the average cepstrum (what the microphone, the room and
// the voice add to every frame), kept between runs in one small file per language. Without it
// every run starts from the model's built-in average, which fits nobody's microphone, and the
// first dictation after start is decoded worse than the ones that follow.
//
// A file written for another acoustic model, of another length, or unreadable in any way reads
// as nothing: the caller then keeps the model's default.
class CepstralMeanStore {
public:
    explicit CepstralMeanStore(QString folder);

    // $XDG_CACHE_HOME/murmurly/cepstral-mean: the estimate is a cache, rebuilt by dictating.
    static QString defaultFolder();

    QString filePath(const QString& language) const;

    // The stored estimate for `language` learned with `acousticModel`, if it has `size` values.
    std::optional<std::vector<float>> load(const QString& language, const QString& acousticModel,
                                           std::size_t size) const;
    // Replaces the stored estimate atomically. False when it could not be written.
    bool save(const QString& language, const QString& acousticModel, const std::vector<float>& mean) const;

private:
    QString m_folder;
};

} // namespace murmurly
