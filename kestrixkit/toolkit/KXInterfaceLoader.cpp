#include <kestrixkit/toolkit/KXInterfaceLoader.h>

#include <QBuffer>
#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QImageReader>
#include <QUiLoader>
#include <QXmlStreamReader>
#include <QXmlStreamWriter>

#include <kestrixkit/foundation/KXBundle.h>
#include <kestrixkit/foundation/KXLog.h>
#include <kestrixkit/theme/controls/KXBadge.h>
#include <kestrixkit/theme/controls/KXButtonMatrixView.h>
#include <kestrixkit/theme/controls/KXHyperlinkButton.h>
#include <kestrixkit/theme/controls/KXPlaceholderView.h>
#include <kestrixkit/theme/controls/KXPopoverFrame.h>
#include <kestrixkit/theme/controls/KXSelectionBar.h>
#include <kestrixkit/theme/controls/KXStarRating.h>
#include <kestrixkit/theme/controls/KXThemeableButton.h>
#include <kestrixkit/theme/controls/KXThemeableOutlineView.h>
#include <kestrixkit/theme/controls/KXThemeablePopUpButton.h>
#include <kestrixkit/theme/controls/KXThemeableProgressIndicator.h>
#include <kestrixkit/theme/controls/KXThemeableScrollView.h>
#include <kestrixkit/theme/controls/KXThemeableScroller.h>
#include <kestrixkit/theme/controls/KXThemeableSegmentedControl.h>
#include <kestrixkit/theme/controls/KXThemeableSpinningProgressIndicator.h>
#include <kestrixkit/theme/controls/KXThemeableSplitView.h>
#include <kestrixkit/theme/controls/KXThemeableTableView.h>
#include <kestrixkit/theme/controls/KXThemeableTextField.h>
#include <kestrixkit/theme/controls/KXThemeableView.h>
#include <kestrixkit/toolkit/KXHTMLView.h>

using namespace Qt::StringLiterals;

namespace {

constexpr char interfaceFileProperty[] = "kxInterfaceFile";

/// The file as Qt's builder is to read it; empty, with a log line, where it is no interface file.
QByteArray interfacePrepared(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        KXLogError(toolkit, "Cannot read the interface file %@: %@", path, file.errorString());
        return {};
    }
    QByteArray prepared;
    QXmlStreamReader reader(&file);
    QXmlStreamWriter writer(&prepared);
    int depth = 0;
    bool hasWidget = false;
    QString element; // begun last
    while (!reader.atEnd()) {
        reader.readNext();
        if (reader.isStartElement()) {
            ++depth;
            element = reader.name().toString();
            hasWidget |= depth == 2 && reader.name() == "widget"_L1;
            // The builder takes the class of the form for the translation context.
            if (depth == 2 && reader.name() == "class"_L1) {
                reader.readElementText();
                writer.writeTextElement("class"_L1, "KestrixKit"_L1);
                --depth;
                continue;
            }
        } else if (reader.isEndElement()) {
            --depth;
        } else if (reader.isCharacters() && !reader.isWhitespace()) {
            const QString image = reader.text().toString();
            if (element != "string"_L1 && (image.endsWith(".svg"_L1) || image.endsWith(".png"_L1))
                && !QImageReader(QFileInfo(path).dir().filePath(image)).canRead())
                KXLogWarning(toolkit, "Cannot read the image \"%@\", which the interface file %@ names", image, path);
        }
        if (!reader.hasError())
            writer.writeCurrentToken(reader);
    }
    if (reader.hasError()) {
        KXLogError(toolkit, "The interface file %@ is malformed in line %lld: %@", path, reader.lineNumber(),
            reader.errorString());
        return {};
    }
    if (!hasWidget) {
        KXLogError(toolkit, "The interface file %@ has no widget", path);
        return {};
    }
    return prepared;
}

}

class KXInterfaceLoader::Builder : public QUiLoader
{
public:
    QWidget *createWidget(const QString &className, QWidget *parent, const QString &name) override
    {
        const auto found = factories->find(className);
        QWidget *made = found != factories->end() ? (*found)(parent) : nullptr;
        if (made) {
            made->setObjectName(name);
            return made;
        }
        made = QUiLoader::createWidget(className, parent, name);
        const bool isKnown = made && (made->inherits(className.toLatin1().constData()) || className == "Line"_L1);
        if (!isKnown)
            KXLogWarning(
                toolkit, "Unknown class \"%@\" of the widget \"%@\" in the interface file %@", className, name, path);
        if (!made) {
            made = new QWidget(parent);
            made->setObjectName(name);
        }
        return made;
    }

    const QHash<QString, Factory> *factories = nullptr;
    QString path;
};

KXInterfaceLoader &KXInterfaceLoader::shared()
{
    static auto *const loader = new KXInterfaceLoader;
    return *loader;
}

KXInterfaceLoader::KXInterfaceLoader()
{
    // The builder loads every designer plug-in that it finds when it is made.
    const QStringList paths = QCoreApplication::libraryPaths();
    QCoreApplication::setLibraryPaths({});
    m_builder = new Builder;
    QCoreApplication::setLibraryPaths(paths);
    m_builder->factories = &m_factories;
    m_builder->setLanguageChangeEnabled(true);
    registerControls();
    registerWidget<KXHTMLView>();
}

void KXInterfaceLoader::registerControls()
{
    const auto all = [this]<typename... Widgets>() { (registerWidget<Widgets>(), ...); };
    all.operator()<KXBadge, KXButtonMatrixView, KXHyperlinkButton, KXPlaceholderView, KXPopoverFrame, KXSelectionBar,
        KXStarRating, KXThemeableButton, KXThemeableControl, KXThemeableOutlineView, KXThemeablePopUpButton,
        KXThemeableProgressIndicator, KXThemeableScrollView, KXThemeableSegmentedControl,
        KXThemeableSpinningProgressIndicator, KXThemeableTableView, KXThemeableTextField, KXThemeableView>();
    // Files turn these round by the property "orientation".
    const auto oriented = [this]<typename Widget>(Widget *) {
        registerWidget(QString::fromLatin1(Widget::staticMetaObject.className()),
            [](QWidget *parent) -> QWidget * { return new Widget(Qt::Horizontal, parent); });
    };
    oriented(static_cast<KXThemeableScroller *>(nullptr));
    oriented(static_cast<KXThemeableSplitView *>(nullptr));
}

bool KXInterfaceLoader::isRegistered(const QString &className) const { return m_factories.contains(className); }

void KXInterfaceLoader::registerWidget(const QString &className, Factory factory)
{
    m_factories.insert(className, std::move(factory));
}

QString KXInterfaceLoader::pathForInterface(const QString &name)
{
    for (const KXBundle *bundle : { &KXBundle::mainBundle(), &KXBundle::frameworkBundle() }) {
        const QString path = bundle->pathForResource(name, u"ui"_s, u"interfaces"_s);
        if (!path.isEmpty())
            return path;
    }
    return {};
}

QWidget *KXInterfaceLoader::load(const QString &path, QWidget *parent)
{
    QByteArray prepared = interfacePrepared(path);
    if (prepared.isEmpty())
        return nullptr;
    QBuffer buffer(&prepared);
    buffer.open(QIODevice::ReadOnly);
    m_builder->setWorkingDirectory(QFileInfo(path).dir());
    // A widget of the file may load one of its own.
    const QString outer = std::exchange(m_builder->path, path);
    QWidget *const view = m_builder->load(&buffer, parent);
    m_builder->path = outer;
    if (!view) {
        KXLogError(toolkit, "Cannot make a view of the interface file %@: %@", path, m_builder->errorString());
        return nullptr;
    }
    view->setProperty(interfaceFileProperty, path);
    return view;
}

QObject *KXInterfaceLoader::findOutlet(QWidget *view, const QString &name, const QMetaObject &type)
{
    if (!view)
        return nullptr;
    if (view->objectName() == name && type.cast(view))
        return view;
    for (QObject *object : view->findChildren<QObject *>(name)) {
        if (type.cast(object))
            return object;
    }
    KXLogWarning(toolkit, "There is no %s \"%@\" in the interface file %@", type.className(), name,
        view->property(interfaceFileProperty).toString());
    return nullptr;
}
