#include "d_id_text_translator.h"

namespace {
const QString c_panelIdPrefix = QStringLiteral("maintenance_panel_");
} // namespace

QString DIdTextTranslator::translate(const char*, const char* sourceText, const char*, int) const
{
    const QString id = QString::fromUtf8(sourceText);
    if (!id.startsWith(c_panelIdPrefix))
        return {};
    return id.mid(c_panelIdPrefix.size()).replace(QLatin1Char('_'), QLatin1Char(' '));
}

bool DIdTextTranslator::isEmpty() const { return false; }
