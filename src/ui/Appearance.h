#pragma once

#include "app/AppSettings.h"

#include <QColor>

namespace varnel {

QColor accentColor(Accent accent);

// Applies the chosen appearance and accent to the whole application; "system" leaves the
// platform's look in place.
void applyAppearance(Appearance appearance, Accent accent);

} // namespace varnel
