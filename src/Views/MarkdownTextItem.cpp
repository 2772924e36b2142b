#include "MarkdownTextItem.h"

#include "Markdown/MarkdownRenderer.h"

#include <QAbstractTextDocumentLayout>
#include <QTextDocument>

#include <cmath>

MarkdownTextItem::MarkdownTextItem(QObject *parent)
    : QObject(parent)
    , m_font(Markdown::systemFont(14, QFont::Normal))
{
}

void MarkdownTextItem::setDocument(QQuickTextDocument *document)
{
    if (m_document == document)
        return;
    m_document = document;
    if (QTextDocument *doc = document ? document->textDocument() : nullptr) {
        // A new width or any relayout may change the height; measuring after each pass settles it.
        connect(doc->documentLayout(), &QAbstractTextDocumentLayout::documentSizeChanged, this,
                &MarkdownTextItem::scheduleMeasure);
    }
    emit documentChanged();
    update();
}

void MarkdownTextItem::setText(const QString &text)
{
    if (m_text == text)
        return;
    m_text = text;
    emit textChanged();
    update();
}

void MarkdownTextItem::setTextColor(const QColor &color)
{
    if (m_textColor == color)
        return;
    m_textColor = color;
    emit textColorChanged();
    update();
}

void MarkdownTextItem::setAccentColor(const QColor &color)
{
    if (m_accentColor == color)
        return;
    m_accentColor = color;
    emit accentColorChanged();
    update();
}

void MarkdownTextItem::setFont(const QFont &font)
{
    if (m_font == font)
        return;
    m_font = font;
    emit fontChanged();
    update();
}

QColor MarkdownTextItem::selectionColor() const
{
    QColor color = m_accentColor.toRgb();
    if (!color.isValid())
        color = m_accentColor;
    color.setAlphaF(0.3f);
    return color;
}

void MarkdownTextItem::update()
{
    QTextDocument *doc = m_document ? m_document->textDocument() : nullptr;
    if (!doc)
        return;
    QColor accent = m_accentColor.toRgb();
    if (!accent.isValid())
        accent = m_accentColor;
    m_writer.render(doc, m_text,
                    {m_font, m_textColor, accent, MarkdownDocumentWriter::bubbleParagraphStyle()});
    scheduleMeasure();
}

void MarkdownTextItem::scheduleMeasure()
{
    if (m_measureQueued)
        return;
    m_measureQueued = true;
    QMetaObject::invokeMethod(this, &MarkdownTextItem::recalcHeight, Qt::QueuedConnection);
}

void MarkdownTextItem::recalcHeight()
{
    m_measureQueued = false;
    QTextDocument *doc = m_document ? m_document->textDocument() : nullptr;
    if (!doc || !doc->documentLayout())
        return;
    const qreal height = MarkdownDocumentWriter::measuredHeight(doc);
    if (height != m_dynamicHeight) {
        m_dynamicHeight = height;
        emit dynamicHeightChanged();
    }
    const int width = int(std::ceil(doc->idealWidth()));
    if (width != m_usedWidth) {
        m_usedWidth = width;
        emit usedWidthChanged();
    }
}
