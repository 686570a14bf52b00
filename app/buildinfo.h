#pragma once

#include <QByteArray>

// Version of the program as shown in the log and the About dialog.
inline constexpr const char kAppVersionNumber[] = "0.9.0";

// Month number (1..12) of an English three-letter abbreviation ("Jan".."Dec"),
// compared exactly and case-sensitively; 0 for anything else.
int monthFromAbbreviation(const char *abbreviation);

// 14-digit stamp yyyyMMddHHmmss from the compiler's date text ("May 28 2026")
// and time text ("20:52:31"). Fields that cannot be read count as 0.
QByteArray buildStampFromCompilerTexts(const char *dateText, const char *timeText);

// "TavroKVM-v0.9.0-" followed by the build stamp of the given texts.
QByteArray appVersionString(const char *dateText, const char *timeText);

// The version string of this build (stamp of the moment buildinfo.cpp was compiled).
QByteArray appVersionString();
