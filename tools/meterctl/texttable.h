#pragma once

#include <QList>
#include <QStringList>

// Left-aligned columns padded to their widest cell, two blanks apart, like ps and ip print.
class TextTable
{
public:
    void setHeader(const QStringList &titles);
    void addRow(const QStringList &cells);
    // Every line ends with a newline; no trailing blanks.
    QString render() const;

private:
    QList<qsizetype> _columnWidths() const;
    static QString _renderLine(const QStringList &cells, const QList<qsizetype> &widths);

    QStringList _header;
    QList<QStringList> _rows;
};
