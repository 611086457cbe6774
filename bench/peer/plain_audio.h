/// The plain ways to what the audio engine does: FFmpeg's libraries called directly, with one decoding thread; a loop
/// that mixes arrays; a sum over memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

namespace plain {

/// A file decoded to planar float in chunks of a given size, by libavformat, libavcodec and libswresample.
class AudioDecoder
{
public:
    explicit AudioDecoder(const std::string &path);
    ~AudioDecoder();

    [[nodiscard]] int channels() const;
    /// Fills one array a channel and answers how many frames there were; fewer than asked for at the end only.
    int read(float *const *channels, int frames);

private:
    struct Libraries;
    bool nextFrame();
    const std::unique_ptr<Libraries> m_;
};

/// Adds channels, even ones to the left and odd ones to the right, each with its gain, and the sum with another.
void mix(
    float *left, float *right, const float *const *channels, const float *gains, int count, int frames, float gain);

uint64_t xorSum(std::span<const uint64_t> words);

}
