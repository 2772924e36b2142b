#pragma once

#include "Markdown/MarkdownDocumentWriter.h"

#include <QColor>
#include <QFont>
#include <QObject>
#include <QPointer>
#include <QQmlEngine>
#include <QQuickTextDocument>

// Fills the document of a read-only, selectable TextEdit with rendered Markdown and reports the size the
// laid-out text needs: its height (whole points, rounded up) and the width its longest line uses.
class MarkdownTextItem : public QObject {
    Q_OBJECT
    QML_ELEMENT
    Q_PROPERTY(QQuickTextDocument *document READ document WRITE setDocument NOTIFY documentChanged)
    Q_PROPERTY(QString text READ text WRITE setText NOTIFY textChanged)
    Q_PROPERTY(QColor textColor READ textColor WRITE setTextColor NOTIFY textColorChanged)
    Q_PROPERTY(QColor accentColor READ accentColor WRITE setAccentColor NOTIFY accentColorChanged)
    Q_PROPERTY(QFont font READ font WRITE setFont NOTIFY fontChanged)
    Q_PROPERTY(QColor selectionColor READ selectionColor NOTIFY accentColorChanged)
    Q_PROPERTY(qreal dynamicHeight READ dynamicHeight NOTIFY dynamicHeightChanged)
    Q_PROPERTY(int usedWidth READ usedWidth NOTIFY usedWidthChanged)

public:
    explicit MarkdownTextItem(QObject *parent = nullptr);

    QQuickTextDocument *document() const { return m_document; }
    void setDocument(QQuickTextDocument *document);
    QString text() const { return m_text; }
    void setText(const QString &text);
    QColor textColor() const { return m_textColor; }
    void setTextColor(const QColor &color);
    QColor accentColor() const { return m_accentColor; }
    void setAccentColor(const QColor &color);
    QFont font() const { return m_font; }
    void setFont(const QFont &font);
    QColor selectionColor() const;
    qreal dynamicHeight() const { return m_dynamicHeight; }
    int usedWidth() const { return m_usedWidth; }

    // Measures now (the view also measures after every update and layout pass).
    Q_INVOKABLE void recalcHeight();

signals:
    void documentChanged();
    void textChanged();
    void textColorChanged();
    void accentColorChanged();
    void fontChanged();
    void dynamicHeightChanged();
    void usedWidthChanged();

private:
    void update();
    void scheduleMeasure();

    QPointer<QQuickTextDocument> m_document;
    QString m_text;
    QColor m_textColor = Qt::black;
    QColor m_accentColor = Qt::blue;
    QFont m_font;
    // The caller's starting value until the first measurement differs.
    qreal m_dynamicHeight = 20;
    int m_usedWidth = 0;
    bool m_measureQueued = false;
    MarkdownDocumentWriter m_writer;
};
