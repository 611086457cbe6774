#include <kestrixkit/audio/KXWaveformWindow.h>

#include <cmath>

#include <kestrixkit/audio/KXWaveformMeter_p.h>
#include <kestrixkit/audio/KXWaveformPass_p.h>

std::optional<KXWaveformColumns> KXWaveformWindow::read(
    const QUrl &url, const std::shared_ptr<std::atomic<bool>> &cancelled, KXError *error) const
{
    KXWaveformPass pass;
    if (!pass.open(url, cancelled, error))
        return {};
    const auto all = int(pass.format().mChannelsPerFrame);
    const KXWaveformBounds bounds(from, to, columns);
    std::vector<KXWaveformExtent> extents(size_t(std::max(0, columns)));
    std::vector<KXWaveformExtent> block(static_cast<size_t>(all));
    std::vector<float> mix(KXWaveformSamples::MostFrames);
    KXWaveformSamples clean(all);
    int column = 0;
    while (column < columns && bounds.end(column) <= 0)
        ++column;
    qint64 at = std::max<qint64>(0, from);
    if (column >= columns || at > pass.frames())
        return KXWaveformColumns(extents.size());
    if (at > 0 && !pass.seek(at, error))
        return {};
    const auto isWanted = [&](int c) {
        return gains.empty() && (channels.empty() || std::find(channels.begin(), channels.end(), c) != channels.end());
    };
    const auto addBlock = [&](int count, KXWaveformExtent *extent) {
        for (int c = 0; c < all; ++c) {
            if (isWanted(c))
                extent->add(block[size_t(c)]);
        }
        for (int side = 0; !gains.empty() && side < std::min(2, all); ++side) {
            std::fill_n(mix.begin(), count, 0.0F);
            for (int c = side; c < all; c += 2) {
                const float gain = size_t(c) / 2 < gains.size() ? gains[size_t(c) / 2] : 1;
                for (int i = 0; i < count; ++i)
                    mix[size_t(i)] += clean.channels()[c][i] * gain;
            }
            // A last stem that is alone and plays alone has nothing on the right.
            const bool isHeard = side == 0 || [&] {
                for (int c = 1; c < all; c += 2) {
                    if (size_t(c) / 2 >= gains.size() || gains[size_t(c) / 2] != 0)
                        return true;
                }
                return false;
            }();
            if (isHeard)
                extent->add(KXMeasureSamples(mix.data(), count));
        }
    };
    const auto take = [&](const float *const *samples, int frames) {
        for (int offset = 0; offset < frames && column < columns;) {
            const auto count = int(
                std::min<qint64>({ frames - offset, bounds.end(column) - at, qint64(KXWaveformSamples::MostFrames) }));
            clean.take(samples, offset, count, block.data());
            addBlock(count, &extents[size_t(column)]);
            offset += count;
            at += count;
            for (; column < columns && at >= bounds.end(column); ++column) {
                // Where columns are narrower than a frame, neighbours show the same one.
                for (int next = column + 1; next < columns && bounds.start(next) < at; ++next) {
                    if (bounds.end(next) <= at)
                        extents[size_t(next)] = extents[size_t(column)];
                }
            }
        }
    };
    if (!pass.run(bounds.end(columns - 1) - at, take, error))
        return {};
    KXWaveformColumns result;
    for (const KXWaveformExtent &extent : extents) {
        result.push_back(extent.samples == 0 ? KXWaveformColumn()
                                             : KXWaveformColumn { extent.least, extent.greatest,
                                                 float(std::sqrt(extent.energy / double(extent.samples))) });
    }
    return result;
}
