#pragma once

#include <QMutex>
#include <QStringList>

/*!
    Collects the lines written to the "zuvero" logging category while it
    exists (from every thread), and keeps them off the test's output.
    Lines of other categories pass through to the previous handler, unless
    every category is asked for: then each line is kept as
    "<category>: <message>".
*/
class ZVXLogCapture
{
public:
    enum class Categories { Zuvero, All };

    explicit ZVXLogCapture(Categories categories = Categories::Zuvero);
    ~ZVXLogCapture();
    ZVXLogCapture(const ZVXLogCapture &) = delete;
    ZVXLogCapture &operator=(const ZVXLogCapture &) = delete;

    QStringList lines() const;
    bool contains(const QString &line) const { return lines().contains(line); }
    void clear();

private:
    static void handler(QtMsgType type, const QMessageLogContext &context, const QString &message);

    mutable QMutex m_mutex;
    QStringList m_lines;
    QtMessageHandler m_previous = nullptr;
    Categories m_categories;
};
