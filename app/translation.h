#pragma once

#include <QStringList>

class QTranslator;

// Resource paths tried for the interface translation, in order: ":/i18n/tavrokvm_" plus
// QLocale(entry).name() for each entry of the system's UI language list.
QStringList translationCandidates(const QStringList &uiLanguages);

// Loads the first candidate that exists into `translator`; returns its path, or an empty
// string when none loads (the built-in texts stay).
QString loadFirstTranslation(QTranslator &translator, const QStringList &uiLanguages);
