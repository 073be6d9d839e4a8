#ifndef D_ID_TEXT_TRANSLATOR_H
#define D_ID_TEXT_TRANSLATOR_H

#include <QTranslator>

// Texts for the panels' translation ids when no translation is installed:
// "maintenance_panel_Set_program" reads "Set program".
class DIdTextTranslator : public QTranslator
{
    Q_OBJECT
public:
    using QTranslator::QTranslator;

    QString translate(const char* context, const char* sourceText, const char* disambiguation,
                      int n) const override;
    bool isEmpty() const override;
};

#endif // D_ID_TEXT_TRANSLATOR_H
