#include "numberargument.h"

#include <QRegularExpression>

std::optional<quint32> NumberArgument::parse(const QString &text, quint32 minimum, quint32 maximum)
{
    // Spelled out instead of left to toULongLong(), which would also take blanks, a sign, and
    // a leading 0 as octal.
    static const QRegularExpression decimal(
        QRegularExpression::anchoredPattern(QStringLiteral("[0-9]+")));
    static const QRegularExpression hexadecimal(
        QRegularExpression::anchoredPattern(QStringLiteral("0[xX]([0-9A-Fa-f]+)")));

    bool isNumber = false;
    qulonglong number = 0;
    if (decimal.match(text).hasMatch())
        number = text.toULongLong(&isNumber, 10);
    else if (const QRegularExpressionMatch match = hexadecimal.match(text); match.hasMatch())
        number = match.captured(1).toULongLong(&isNumber, 16);

    if (!isNumber || number < minimum || number > maximum)
        return std::nullopt;
    return quint32(number);
}
