#include <kestrixkit/catalogue/KXCatalogueDialect.h>

KXCatalogueDialect::~KXCatalogueDialect() = default;
