#pragma once

#include <QStringList>

class QTranslator;

// Resource paths tried for the interface translation, in order: ":/i18n/tavrokvm_" plus
// QLocale(entry).name() for each entry of the system's UI language list.
QStringList translationCandidates(const QStringList &uiLanguages);

// Loads the first candidate that exists into `translator`; returns its path, or an empty
// string when none loads (the built-in texts stay).
QString loadFirstTranslation(QTranslator &translator, const QStringList &uiLanguages);

// The catalogue to load when the lookup above found none: the English one (":/i18n/tavrokvm_en")
// unless one of the preferred languages is Chinese, whose texts are the built-in ones; then an
// empty string. An empty list has no Chinese in it and gets English.
QString fallbackTranslation(const QStringList &uiLanguages);

// The start-up choice: the lookup, then the fallback. Returns the path loaded into
// `translator`, or an empty string when the built-in texts stay (nothing to install).
QString loadInterfaceTranslation(QTranslator &translator, const QStringList &uiLanguages);
