#ifndef D_OP_FIELDS_H
#define D_OP_FIELDS_H

#include <QByteArray>
#include <QString>

#include <optional>

// The data of one Open Protocol message, field by field: numbers right-aligned and
// zero-filled, texts left-aligned and space-filled, each cut to its width; a field with an
// id is its two digits followed by the value. A value the station has no source for is
// spaces, its id kept (Open Protocol R2.8.0, p.30).
class DOpFields
{
public:
    // Negative numbers are sent as 0, numbers too wide for the field as all nines.
    DOpFields& number(qint64 value, int width);
    DOpFields& text(const QString& text, int width);
    DOpFields& number(int id, qint64 value, int width);
    DOpFields& number(int id, std::optional<qint64> value, int width);
    DOpFields& text(int id, const QString& text, int width);
    DOpFields& blank(int id, int width);

    QByteArray data() const { return m_data; }

private:
    DOpFields& id(int id);

    QByteArray m_data;
};

#endif // D_OP_FIELDS_H
