#pragma once

#include "ZVXTextLayout.h"

#include <QWidget>

/*!
    A label of chat text whose links work: the pointer turns into a hand
    over a link, a click opens it with QDesktopServices (after emitting
    linkActivated()), and the keyboard reaches every link: Tab and
    Shift+Tab move between them before leaving the label, Enter or Space
    opens the one with focus. The text's colour and the links' come from
    the palette (WindowText and Link), so a dark palette gives dark text
    colours. Its width decides its height (heightForWidth).
*/
class ZUVERO_EXPORT ZVXAttributedLabel : public QWidget
{
    Q_OBJECT

public:
    explicit ZVXAttributedLabel(QWidget *parent = nullptr);
    explicit ZVXAttributedLabel(const QString &text, QWidget *parent = nullptr);

    QString text() const { return m_layout.text(); }
    //! Also the accessible name.
    void setText(const QString &text);
    //! 0: as many lines as the text needs.
    int maximumLineCount() const { return m_layout.maximumLineCount(); }
    void setMaximumLineCount(int count);
    QList<ZVXLinkDetector::Link> links() const { return m_layout.links(); }
    //! The index in links() of the link with keyboard focus; none without focus.
    std::optional<int> focusedLink() const { return m_focusedLink; }

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;
    bool hasHeightForWidth() const override { return true; }
    int heightForWidth(int width) const override;

Q_SIGNALS:
    //! A link was clicked or activated with the keyboard; it is then opened.
    void linkActivated(const QUrl &url);

protected:
    bool event(QEvent *event) override;
    void paintEvent(QPaintEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void leaveEvent(QEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void focusInEvent(QFocusEvent *event) override;
    void focusOutEvent(QFocusEvent *event) override;
    bool focusNextPrevChild(bool next) override;
    void changeEvent(QEvent *event) override;

private:
    // The layout at the current contents width; painting and hit tests use it.
    const ZVXTextLayout &layout() const;
    std::optional<int> linkAt(const QPointF &position) const;
    void activate(int index);
    void setFocusedLink(std::optional<int> index);
    void updateColors();

    mutable ZVXTextLayout m_layout;
    std::optional<int> m_pressedLink;
    std::optional<int> m_focusedLink;
};
