#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include <optional>

#include <httplib.h>

/*
    multipart/form-data bodies (RFC 7578 over RFC 2046).

    cpp-httplib 0.11 parses these itself, but refuses a body whose closing
    delimiter ("--boundary--") is not followed by a line break, which RFC
    2046 allows and which our own client sends. So the server takes such
    bodies raw (see takeRaw()) and reads them here.
*/
namespace ZVXDevMultipart {

struct Part
{
    QString name;
    QString filename;
    QString contentType;
    QByteArray content;
};

class Form
{
public:
    //! The first part named \a name, if any.
    const Part *part(const QString &name) const;
    QList<Part> parts;
};

inline constexpr int MaxParts = 100;

//! The parts of \a body, or nothing when it is not a well-formed form with \a boundary.
std::optional<Form> parse(const QByteArray &body, const QByteArray &boundary);

/*!
    Called before the body of \a req is read: a multipart request is marked
    so that the server library hands its body over unparsed.
*/
void takeRaw(const httplib::Request &req);

//! The form in \a req (marked by takeRaw()), or nothing when it is not a well-formed form.
std::optional<Form> read(const httplib::Request &req);

} // namespace ZVXDevMultipart
