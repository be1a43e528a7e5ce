#pragma once

#include "zuvero_export.h"

#include <QByteArray>

/*!
    \file
    Certificate authorities the library trusts besides the system's, for
    every HTTPS connection it makes: a company server signed by its own
    authority, or a development server. Verification is never switched off;
    a server whose certificate chains to none of the trusted authorities
    fails like any other transport error. Requests started after a change
    use the new set; none rides a connection verified under the old one.
*/

/*!
    Adds the certificates in \a pem (one or more PEM blocks) to the trusted
    authorities. Returns how many were added; text without a certificate
    adds none and logs an error.
*/
ZUVERO_EXPORT int ZuveroAddTrustedCertificateAuthorities(const QByteArray &pem);

//! Trusts the system's authorities alone again.
ZUVERO_EXPORT void ZuveroRemoveTrustedCertificateAuthorities();
