#include <cstdlib>

#include <QImage>
#include <QPainter>
#include <gtest/gtest.h>

#include <kestrixkit/foundation/KXNotificationCenter.h>
#include <kestrixkit/theme/KXPixelThickLine.h>
#include <kestrixkit/theme/KXThemeManager.h>
#include <kestrixkit/theme/KXThemeable.h>

using namespace Qt::StringLiterals;

namespace {

/// Remembers what is set on it; knows no other keys than these.
class Control : public KXThemeable
{
public:
    QVariantMap values { { u"textColor"_s, {} }, { u"titleFont.bold"_s, {} } };
    int applied = 0;
    int displayed = 0;

private:
    bool setThemeValue(const QString &keyPath, const QVariant &value) override
    {
        ++applied;
        if (!values.contains(keyPath))
            return false;
        values[keyPath] = value;
        return true;
    }
    void setNeedsDisplay() override { ++displayed; }
};

class RedTheme : public KXTheme
{
public:
    QColor textColour() const override { return Qt::red; }
};

}

class Theme : public ::testing::Test
{
protected:
    ~Theme() override { manager.setTheme(nullptr); }
    KXThemeManager &manager = KXThemeManager::sharedManager();
};

TEST_F(Theme, answersByNameWhatItAnswersByAccessor)
{
    const KXTheme theme;
    EXPECT_EQ(theme.valueForKey(u"textColour"_s).value<QColor>(), QColor::fromRgbF(0.2F, 0.2F, 0.2F));
    EXPECT_EQ(theme.valueForKey(u"textShadow"_s).value<KXShadow>(), theme.textShadow());
    EXPECT_TRUE(theme.valueForKey(u"textFont"_s).value<QFont>().bold());
    EXPECT_EQ(
        theme.valueForKey(u"messageViewErrorGradient"_s).value<QLinearGradient>(), theme.messageViewErrorGradient());
    const auto rows = theme.valueForKey(u"tableRowBackgroundColours"_s).value<QList<QColor>>();
    ASSERT_EQ(rows.size(), 2);
    EXPECT_NEAR(rows[0].redF(), 0.942, 1e-4);
    EXPECT_NEAR(rows[1].redF(), 0.96, 1e-4);

    QImage image(4, 4, QImage::Format_RGB32);
    QPainter painter(&image);
    theme.valueForKey(u"filterSetPresetViewDrawBlock"_s).value<KXDrawBlock>()(painter, QRectF(0, 0, 4, 4));
    EXPECT_EQ(image.pixelColor(2, 2), QColor(190, 190, 190));

    EXPECT_EQ(RedTheme().valueForKey(u"textColour"_s).value<QColor>(), QColor(Qt::red));
    EXPECT_EQ(KXTheme().textColour(), theme.textColour());
    EXPECT_FALSE(theme.valueForKey(u"noSuchName"_s).isValid());
}

TEST_F(Theme, isConfiguredByName)
{
    KXTheme theme;
    for (const QString &key : { u"tableGridColour"_s, u"placeholderTextFont"_s, u"playerWaveformForegroundGradient"_s,
             u"filterBarBackgroundDrawBlock"_s })
        EXPECT_FALSE(theme.valueForKey(key).isValid()) << key.toStdString();
    EXPECT_TRUE(theme.setValueForKey(u"tableGridColour"_s, QColor(1, 2, 3)));
    EXPECT_EQ(theme.tableGridColour(), QColor(1, 2, 3));
    EXPECT_FALSE(theme.setValueForKey(u"textColour"_s, QColor(1, 2, 3)));
    EXPECT_TRUE(theme.setValueForKey(u"filterPresetIcons"_s, QVariantMap { { u"folder"_s, u"a picture"_s } }));

    EXPECT_FALSE(manager.valueForKeyPath(u"textColour"_s).isValid()); // no theme yet
    manager.setTheme(std::shared_ptr<KXTheme>(&theme, [](KXTheme *) {}));
    EXPECT_EQ(manager.valueForKeyPath(u"filterPresetIcons.folder"_s).toString(), u"a picture"_s);
    EXPECT_FALSE(manager.valueForKeyPath(u"filterPresetIcons.preset"_s).isValid());
}

TEST_F(Theme, noiseIsTheStandardGenerators)
{
    std::srand(7);
    const int undisturbed = std::rand();
    std::srand(7);
    const KXTheme theme;
    const KXTheme other;
    const QImage tile = theme.noisePattern().textureImage();
    EXPECT_EQ(std::rand(), undisturbed); // the host's own sequence goes on
    EXPECT_EQ(tile.cacheKey(), other.noisePattern().textureImage().cacheKey());
    const QImage noisier = theme.valueForKey(u"extraNoisyPattern"_s).value<QBrush>().textureImage();

    ASSERT_EQ(tile.size(), QSize(128, 128));
    std::srand(124);
    for (int i = 0; i < 128 * 128; ++i) {
        const int random = std::rand() % 256;
        ASSERT_EQ(tile.constScanLine(i / 128)[i % 128], int(random * 0.018)) << i;
        ASSERT_EQ(noisier.constScanLine(i / 128)[i % 128], int(random * 0.023)) << i;
    }
}

TEST_F(Theme, controlsFollowAndStylesStick)
{
    Control control;
    control.setThemeStyleName(u"labelStyles"_s);
    EXPECT_EQ(control.applied, 0); // no theme

    const auto theme = std::make_shared<KXTheme>();
    theme->setValueForKey(u"labelStyles"_s,
        QVariantMap { { u"aKeyOfOthers"_s, 1 }, { u"textColor"_s, 2 }, { u"titleFont.bold"_s, true } });
    theme->setValueForKey(u"plainStyles"_s, QVariantMap { { u"textColor"_s, 3 } });
    theme->setValueForKey(u"noStyle"_s, 5);
    int posted = 0;
    const auto token = KXNotificationCenter::defaultCenter().addObserver(
        KXThemeDidChangeNotification, &manager, [&](const KXNotification &) { ++posted; });
    manager.setTheme(theme);
    manager.setTheme(theme);
    EXPECT_EQ(posted, 2);
    EXPECT_EQ(control.applied, 6);
    EXPECT_EQ(control.displayed, 3);
    EXPECT_EQ(control.values, (QVariantMap { { u"textColor"_s, 2 }, { u"titleFont.bold"_s, true } }));

    for (const QString &name : { u"plainStyles"_s, u"noStyle"_s, u"noSuchStyle"_s, QString() })
        control.setThemeStyleName(name);
    EXPECT_EQ(control.values, (QVariantMap { { u"textColor"_s, 3 }, { u"titleFont.bold"_s, true } }));
}

TEST_F(Theme, pixelLinesKeepTheirEnds)
{
    const QRectF rect(10.3, 20.3, 100, 40);
    EXPECT_EQ((KXPixelThickLine { 0, 2, rect }.line()), QLineF(12, 19.5, 112, 19.5));
    EXPECT_EQ(
        (KXPixelThickLine { .position = 1, .inset = 2, .rect = rect, .flip = true, .inFlippedView = false }.line()),
        QLineF(12, 58.5, 108, 58.5));
    EXPECT_EQ((KXPixelThickLine { .position = 3, .inset = 2, .rect = rect, .horizontal = false }.line()),
        QLineF(13.5, 22, 13.5, 58));
    EXPECT_EQ((KXPixelThickLine { .position = 3, .rect = rect, .horizontal = false, .flip = true }.line(2)),
        QLineF(107, 20.5, 107, 60.5));
}
