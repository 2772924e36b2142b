#pragma once

#include <QString>
#include <QStringView>

#include <optional>

// The regular expressions that find rows and cells in a worksheet, in ICU syntax, and searches that give
// exactly their matches without a backtracking engine. A worksheet holds millions of cells; run by ICU, the
// lazy loops of these patterns cost most of the extraction's time, while the searches below cost a few
// passes over the text and have no step limit that could end a search early.
namespace WorkbookPatterns {

// With the dot matching line separators.
inline const QString RowPattern = QStringLiteral("<row[^>]*>(.*?)</row>");
inline const QString CellPattern =
    QStringLiteral("<c[^>]*t=\"s\"[^>]*>.*?<v>(\\d+)</v>.*?<\\/c>"
                   "|<c[^>]*t=\"(?:inlineStr|str)\"[^>]*>.*?<t[^>]*>(.*?)</t>.*?<\\/c>"
                   "|<c[^>]*>.*?<v>([0-9.]+)</v>.*?<\\/c>");

struct Match {
    qsizetype start = -1;
    qsizetype end = -1;        // after the match
    int group = 0;             // the capture group that took part (rows: always 1)
    qsizetype valueStart = -1; // that group
    qsizetype valueEnd = -1;
};

// The first match of the row pattern at or after `from`. Nothing when there is none; then `openRow`, when
// given, receives where a row begins that the text ends inside of (-1 when no row is begun), so a caller
// that reads the text in pieces knows what to keep.
std::optional<Match> findRow(QStringView text, qsizetype from, qsizetype *openRow = nullptr);

// The matches of the cell pattern in one row's inner text, in order, as a global search finds them.
class CellScanner {
public:
    explicit CellScanner(QStringView row);
    std::optional<Match> next();

private:
    // The next occurrence of one literal at or after a position, remembered, so that searches from rising
    // positions cost one pass.
    class Finder {
    public:
        Finder(QStringView text, QStringView needle)
            : m_text(text)
            , m_needle(needle)
        {
        }
        qsizetype next(qsizetype from);

    private:
        QStringView m_text;
        QStringView m_needle;
        qsizetype m_from = -1;
        qsizetype m_at = -1;
    };

    // The rest of the first two alternatives, for a tag that names their type.
    std::optional<Match> sharedString(qsizetype start, qsizetype tagEnd);
    std::optional<Match> inlineString(qsizetype start, qsizetype tagEnd);
    std::optional<Match> number(qsizetype start, qsizetype tagEnd);

    QStringView m_row;
    qsizetype m_pos = 0;
    // One finder per literal: the alternatives ask for the same tags ("<v>", "</c>", ">"), and a finder
    // answers any position, so sharing one costs a search again only when a later alternative asks from
    // further back than the one before it, instead of a pass over the row for each.
    Finder m_cellOpen, m_tagEnd;
    Finder m_value, m_cellClose;
    Finder m_textOpen, m_textClose;
};

} // namespace WorkbookPatterns
