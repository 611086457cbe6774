/// Export macro of KestrixKit::Catalogue, which no other library includes anything of.
#pragma once

#include <QtGlobal>

#if defined(KX_BUILD_CATALOGUE)
#define KX_CATALOGUE_EXPORT Q_DECL_EXPORT
#else
#define KX_CATALOGUE_EXPORT Q_DECL_IMPORT
#endif
