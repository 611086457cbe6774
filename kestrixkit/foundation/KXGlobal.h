/// Export macros of the framework's libraries.
#pragma once

#include <QtGlobal>

#if defined(KX_BUILD_CORE)
#define KX_CORE_EXPORT Q_DECL_EXPORT
#else
#define KX_CORE_EXPORT Q_DECL_IMPORT
#endif

#if defined(KX_BUILD_AUDIO)
#define KX_AUDIO_EXPORT Q_DECL_EXPORT
#else
#define KX_AUDIO_EXPORT Q_DECL_IMPORT
#endif

#if defined(KX_BUILD_UI)
#define KX_UI_EXPORT Q_DECL_EXPORT
#else
#define KX_UI_EXPORT Q_DECL_IMPORT
#endif

#if defined(KX_BUILD_WEB)
#define KX_WEB_EXPORT Q_DECL_EXPORT
#else
#define KX_WEB_EXPORT Q_DECL_IMPORT
#endif
