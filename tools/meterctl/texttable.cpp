#include "texttable.h"

#include <QRegularExpression>

void TextTable::setHeader(const QStringList &titles)
{
    _header = titles;
}

void TextTable::addRow(const QStringList &cells)
{
    // Texts come from the daemon; a line break or an escape sequence in one would tear the
    // table apart or take over the terminal.
    static const QRegularExpression control(QStringLiteral("[\\x00-\\x1f\\x7f]"));
    QStringList printable;
    for (QString cell : cells)
        printable.append(cell.replace(control, QStringLiteral("?")));
    _rows.append(printable);
}

QString TextTable::render() const
{
    const QList<qsizetype> widths = _columnWidths();
    QString text;
    if (!_header.isEmpty())
        text += _renderLine(_header, widths);
    for (const QStringList &row : _rows)
        text += _renderLine(row, widths);
    return text;
}

QList<qsizetype> TextTable::_columnWidths() const
{
    QList<qsizetype> widths;
    for (const QStringList &line : QList<QStringList> { _header } + _rows) {
        if (widths.size() < line.size())
            widths.resize(line.size(), 0);
        for (qsizetype column = 0; column < line.size(); ++column)
            widths[column] = qMax(widths.at(column), line.at(column).size());
    }
    return widths;
}

QString TextTable::_renderLine(const QStringList &cells, const QList<qsizetype> &widths)
{
    QString line;
    for (qsizetype column = 0; column < cells.size(); ++column) {
        if (column > 0)
            line += QStringLiteral("  ");
        line += cells.at(column).leftJustified(widths.at(column));
    }
    // Padding of the last column would only leave trailing blanks behind.
    while (line.endsWith(QLatin1Char(' ')))
        line.chop(1);
    return line + QLatin1Char('\n');
}
