#include "app/buildinfo.h"

#include <cstdio>
#include <cstring>

int monthFromAbbreviation(const char *abbreviation)
{
    static const char *const months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                         "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    if (!abbreviation)
        return 0;
    for (int i = 0; i < 12; ++i) {
        if (std::strcmp(abbreviation, months[i]) == 0)
            return i + 1;
    }
    return 0;
}

QByteArray buildStampFromCompilerTexts(const char *dateText, const char *timeText)
{
    char month[4] = {};
    int day = 0, year = 0, hour = 0, minute = 0, second = 0;
    if (dateText)
        std::sscanf(dateText, "%3s %d %d", month, &day, &year);
    if (timeText)
        std::sscanf(timeText, "%d:%d:%d", &hour, &minute, &second);

    char stamp[64];
    std::snprintf(stamp, sizeof stamp, "%d%02d%02d%02d%02d%02d", year,
                  monthFromAbbreviation(month), day, hour, minute, second);
    return QByteArray(stamp);
}

QByteArray appVersionString(const char *dateText, const char *timeText)
{
    return QByteArray("TavroKVM-v") + kAppVersionNumber + '-' +
           buildStampFromCompilerTexts(dateText, timeText);
}

QByteArray appVersionString()
{
    return appVersionString(__DATE__, __TIME__);
}
