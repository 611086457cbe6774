#include <kestrixkit/theme/controls/KXThemeableTextFieldCell.h>

KXThemeableTextFieldCell::KXThemeableTextFieldCell(QObject *control)
    : KXThemeableCell(control)
{
}
