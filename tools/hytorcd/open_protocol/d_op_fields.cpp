#include "d_op_fields.h"

DOpFields& DOpFields::number(qint64 value, int width)
{
    qint64 largest = 1;
    for (int i = 0; i < width; ++i)
        largest *= 10;
    m_data += QByteArray::number(qBound<qint64>(0, value, largest - 1)).rightJustified(width, '0');
    return *this;
}

// Bytes outside printable ASCII would shift every field after them: each becomes '?'.
DOpFields& DOpFields::text(const QString& text, int width)
{
    QByteArray bytes = text.left(width).toLatin1();
    for (char& byte : bytes) {
        if (byte < ' ' || byte > '~')
            byte = '?';
    }
    m_data += bytes.leftJustified(width, ' ');
    return *this;
}

DOpFields& DOpFields::number(int id, qint64 value, int width) { return this->id(id).number(value, width); }

DOpFields& DOpFields::number(int id, std::optional<qint64> value, int width)
{
    return value ? number(id, *value, width) : blank(id, width);
}

DOpFields& DOpFields::text(int id, const QString& text, int width) { return this->id(id).text(text, width); }

DOpFields& DOpFields::blank(int id, int width)
{
    this->id(id);
    m_data += QByteArray(width, ' ');
    return *this;
}

DOpFields& DOpFields::id(int id) { return number(id, 2); }
