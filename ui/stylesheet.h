#pragma once

#include <QString>

// Text of a style sheet from the resource bundle (":/res/qss/…"); empty when it is missing.
QString getQssString(const QString &resourcePath);
