#pragma once

#include <functional>

#include <QHostAddress>
#include <QUrl>

#include <kestrixkit/audio/KXAudioFileBackend.h>

/// Where addresses on the net lead. A page on the public net must not reach, by way of a preview, what only this
/// machine or its own network can see.
namespace KXStreamAddress {

/// Changes the address to the one that its server and those after it redirect to in the end; there is no need to be led
/// any further from there. One of a private network may lead anywhere, and is left alone: `isPublic` tells which it
/// was. KXAudioFileForbiddenError where a public one leads to a private one. Waits for servers, until `isInterrupted`
/// answers true, which is asked on another thread meanwhile. Any thread.
KX_AUDIO_EXPORT KXAudioFileStatus resolve(QUrl &address, bool &isPublic, const std::function<bool()> &isInterrupted);

/// Whether an address is this machine's, or that of a network without a way to it from outside.
[[nodiscard]] KX_AUDIO_EXPORT bool isPrivate(const QHostAddress &address);

/// What counts as private instead, for tests, whose servers are all on loopback. Null: the rule again.
KX_AUDIO_EXPORT void setPrivateRule(std::function<bool(const QUrl &)> rule);

}
