#pragma once

#include <QIcon>
#include <QString>

// An icon of the resource bundle whose disabled form is visibly faded. The bundle's icons are
// light grey line drawings, which the style's own greying would leave looking enabled.
QIcon bundleIcon(const QString &path);
