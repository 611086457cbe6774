#pragma once

class QWidget;

/// Makes the controls of this folder that are not Qt's own known to assistive technology. Each of their constructors
/// calls it.
void KXInstallControlAccessibility();

/// Tells assistive technology that the control has another value.
void KXAccessibleValueChanged(QWidget *control);
/// The control is described anew when it is asked for next.
void KXForgetAccessibility(QWidget *control);
