#pragma once

#include <QString>

// Text of a style sheet from the resource bundle (":/res/qss/…") or a file; empty, with a log
// line, when it cannot be read.
QString getQssString(const QString &path);
// The check-box style every window appends to its own.
QString getCheckboxQssString();
