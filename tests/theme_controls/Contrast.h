#pragma once

#include <algorithm>
#include <cmath>

#include <QColor>
#include <QHash>
#include <QImage>

/// How much one colour stands out from another: 1 to 21, as WCAG 2 defines it.
inline double contrast(const QColor &a, const QColor &b)
{
    const auto luminance = [](const QColor &colour) {
        const auto linear = [](double c) { return c <= 0.03928 ? c / 12.92 : std::pow((c + 0.055) / 1.055, 2.4); };
        return 0.2126 * linear(colour.redF()) + 0.7152 * linear(colour.greenF()) + 0.0722 * linear(colour.blueF());
    };
    const double la = luminance(a), lb = luminance(b);
    return (std::max(la, lb) + 0.05) / (std::min(la, lb) + 0.05);
}

/// Of what stands out most in a place of a picture from its commonest colour, which is the background.
inline double strongestContrast(const QImage &picture, const QRect &place)
{
    QHash<QRgb, int> colours;
    for (int y = place.top(); y <= place.bottom(); ++y) {
        for (int x = place.left(); x <= place.right(); ++x)
            ++colours[picture.pixel(x, y)];
    }
    QRgb back = 0;
    for (auto colour = colours.begin(); colour != colours.end(); ++colour)
        back = colour.value() > colours.value(back) ? colour.key() : back;
    double best = 0;
    for (auto colour = colours.begin(); colour != colours.end(); ++colour)
        best = std::max(best, contrast(QColor(colour.key()), QColor(back)));
    return best;
}
