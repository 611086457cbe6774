#pragma once

#include <functional>

#include <QHostAddress>
#include <QUrl>

#include <kestrixkit/audio/KXAudioFileBackend.h>

/// Where addresses on the net lead. A page on the public net must not reach, by way of a preview, what only this
/// machine or its own network can see.
namespace KXStreamAddress {

/// Who asks where an address leads, and what they refuse.
struct Asker
{
    /// Ends the waiting for servers; asked on another thread.
    std::function<bool()> isInterrupted;
    /// See KXAudioFileOptions; asked on another thread.
    std::function<bool(const QUrl &)> mayLeadTo = {};
    bool followsPrivateRedirects = false;
    /// As the decoder will ask afterwards: servers may answer others differently.
    QString userAgent = {};
};

/// Changes the address to the one that its server and those after it redirect to in the end; whoever is led any further
/// from there is led astray, which `isFinal` says. One of a private network may lead anywhere where nothing is refused,
/// and is left alone. KXAudioFileForbiddenError where a public one leads to a private one, or any to what is refused.
/// Any thread.
KXAudioFileStatus resolve(QUrl &address, bool &isFinal, const Asker &asker);

/// Whether an address is this machine's, or that of a network without a way to it from outside.
[[nodiscard]] bool isPrivate(const QHostAddress &address);

/// What counts as private instead, for tests, whose servers are all on loopback. Null: the rule again.
void setPrivateRule(std::function<bool(const QUrl &)> rule);

}
