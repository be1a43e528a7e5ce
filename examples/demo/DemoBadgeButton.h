#pragma once

#include <QPushButton>

/*
    A push button with a count in a red disc on its leading top corner, as
    launchers draw unread counts; no disc at zero. The count is part of the
    button's accessible name, so a screen reader says it too.
*/
class DemoBadgeButton : public QPushButton
{
    Q_OBJECT

public:
    explicit DemoBadgeButton(QWidget *parent = nullptr);

    qint64 count() const { return m_count; }
    void setCount(qint64 count);
    //! The button's text; the accessible name adds the count to it.
    void setTitle(const QString &title);

    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    void updateAccessibleName();
    QRect badgeRect() const;

    qint64 m_count = 0;
};
