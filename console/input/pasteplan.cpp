#include "console/input/pasteplan.h"

namespace {

constexpr int kSkippedPreviewLength = 20;

} // namespace

PastePlan planPaste(const QString &text, const KeyboardLayout &layout)
{
    PastePlan plan;
    const QVector<uint> codePoints = text.toUcs4();
    QVector<LayoutStroke> strokes;
    for (qsizetype i = 0; i < codePoints.size(); ++i) {
        char32_t c = char32_t(codePoints.at(i));
        if (c == U'\r') {
            if (i + 1 < codePoints.size() && codePoints.at(i + 1) == U'\n')
                continue; // the "\n" that follows is the line break
            c = U'\n';
        }
        ++plan.characters;
        strokes.clear();
        if (!layout.strokesFor(c, strokes)) {
            ++plan.skipped;
            if (plan.skippedPreview.size() < kSkippedPreviewLength)
                plan.skippedPreview += QString::fromUcs4(&c, 1);
            continue;
        }
        for (const LayoutStroke &stroke : strokes) {
            plan.reports.append({stroke.modifiers, stroke.usage, plan.characters - 1});
            plan.reports.append({0, 0, plan.characters - 1});
        }
        plan.reports.last().character = plan.characters;
    }
    // Characters skipped at the end are done when the last report leaves.
    if (!plan.reports.isEmpty())
        plan.reports.last().character = plan.characters;
    return plan;
}
