#pragma once

#include "zuvero_export.h"

#include <QByteArray>
#include <QMap>
#include <QString>

#include <optional>

/*!
    A "multipart/form-data" body built in memory, part by part: the message
    upload (a JSON part, then one part per attachment file).

    The boundary is one fixed text for every body. Each part after the first
    starts with the CRLF that ends the previous part's content; the closing
    delimiter is appended by the first read of data(), after which further
    parts would land behind it (callers never add any).
*/
class ZUVERO_EXPORT ZVXMultipart
{
public:
    static constexpr QLatin1String DefaultBoundary{
        "ZVXMultipart83c4lq15a4Snje4na2h5kqt8lqr97sp219"};

    QString boundary() const { return m_boundary; }
    //! An empty \a boundary keeps the current one.
    void setBoundary(const QString &boundary);

    //! The value of the request's "Content-Type" header.
    QString contentType() const;

    //! A text part; nothing when \a value is absent or \a key empty.
    void addString(const std::optional<QString> &value, const QString &key);
    //! One text part per entry, in key order.
    void addDictionary(const QMap<QString, QString> &dictionary);
    /*!
        A binary part named \a key ("file" when absent). An absent
        \a mimeType is written as "(null)": no type is guessed. The filename
        clause is left out when \a filename is empty.
    */
    void addData(const std::optional<QByteArray> &data, const std::optional<QString> &key,
                 const std::optional<QString> &mimeType, const QString &filename = {});

    //! The body; the first read after a part has been added closes it.
    QByteArray data();

private:
    void appendHeader(const QString &header);

    QByteArray m_data;
    QString m_boundary = DefaultBoundary;
    bool m_started = false;
    bool m_finished = false;
};
