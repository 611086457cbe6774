#pragma once

#include "Pages.h"

namespace gallery {

/// Source lists: with badges and headings, one that something is dragged over, one that is empty.
QWidget *sourceListPage(const Texts &text);

}
