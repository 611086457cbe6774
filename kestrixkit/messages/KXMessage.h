#pragma once

#include <functional>
#include <memory>

#include <QDateTime>

#include <kestrixkit/foundation/KXError.h>

enum KXMessageType : quint32 {
    KXMessageTypeError = 0,
    KXMessageTypeInfo = 1,
};

/// A short text for the user: an error or news. Made once and held by reference; its identity is what the message
/// center goes by. Main thread.
class KX_CORE_EXPORT KXMessage
{
public:
    using Ref = std::shared_ptr<KXMessage>;
    using SelectionBlock = std::function<void(const Ref &message)>;

    /// Titled with the error's description; its info names domain and code, too. Of no error, both are null.
    [[nodiscard]] static Ref messageWithError(const KXError &error);
    [[nodiscard]] static Ref messageWithTitle(const QString &title, const KXError &error);
    [[nodiscard]] static Ref messageWithType(KXMessageType type, const QString &title, const QString &info = {});
    Q_DISABLE_COPY_MOVE(KXMessage)
    ~KXMessage() = default;

    [[nodiscard]] KXMessageType type() const { return m_type; }
    /// The error that it was made from, if any.
    [[nodiscard]] const KXError &representedError() const { return m_representedError; }
    /// One line, plain text.
    [[nodiscard]] const QString &title() const { return m_title; }
    /// The longer text; may be null. It may hold HTML: whoever builds it of names and texts from elsewhere escapes
    /// them.
    [[nodiscard]] const QString &info() const { return m_info; }
    /// When it was made, in UTC.
    [[nodiscard]] const QDateTime &timestamp() const { return m_timestamp; }
    /// Short date and time, in the user's locale and time zone.
    [[nodiscard]] QString timestampAsString() const;
    /// The info as it stands and, for an error that carries one, the call stack. Looks up the names of the stack, which
    /// is slow.
    [[nodiscard]] QString infoAsHTMLString() const;

    /// Goes by itself after five seconds, if it is still the newest then. Off at first.
    [[nodiscard]] bool autoClear() const { return m_autoClear; }
    void setAutoClear(bool autoClear) { m_autoClear = autoClear; }
    /// Called, in place of showing details, when the user picks the message. Empty at first.
    [[nodiscard]] const SelectionBlock &onSelectionBlock() const { return m_onSelectionBlock; }
    void setOnSelectionBlock(SelectionBlock block) { m_onSelectionBlock = std::move(block); }

private:
    KXMessage(KXMessageType type, QString title, QString info, KXError error);

    const KXMessageType m_type;
    const QString m_title;
    const QString m_info;
    const KXError m_representedError;
    const QDateTime m_timestamp;
    bool m_autoClear = false;
    SelectionBlock m_onSelectionBlock;
};
