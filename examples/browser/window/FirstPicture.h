#pragma once

#include <functional>

#include <QWidget>

/// What can wait until the user sees something.
namespace FirstPicture {

/// Calls the function once, when the view has been drawn for the first time, and everything else of that picture; or a
/// second after this, where the view is not drawn (it may be covered). Not if the view is gone by then. Main thread.
void then(QWidget *view, std::function<void()> function);

}
