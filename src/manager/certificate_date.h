// The expiry date of a certificate.
#pragma once

#include <ctime>
#include <optional>
#include <string_view>

struct asn1_string_st;

/// Fills the calendar fields of a UTCTime: YYMMDDhhmm, optional seconds, then "Z" or an offset,
/// which is not applied; years below 50 are 20YY. Returns false, `fields` untouched, for anything
/// else, the GeneralizedTime of dates from 2050 on included.
bool openssl_asn1_utctime_to_tm(const asn1_string_st* time, std::tm* fields);

/// The day until which the first certificate of a PEM text is valid; none when there is no
/// certificate or its date is not a UTCTime. An encrypted text is one without: nobody is asked for
/// a password.
std::optional<std::tm> CertificateExpiry(std::string_view pem);
