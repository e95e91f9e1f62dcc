#include "Times.hpp"

#include <openssl/x509.h>

#include <array>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <limits>
#include <ratio>
#include <stdexcept>
#include <string_view>

namespace foundation::tools {

namespace {

using std::chrono::seconds;
using std::chrono::system_clock;

constexpr std::int64_t secondsPerMinute = 60;
constexpr std::int64_t secondsPerHour = 60 * secondsPerMinute;
constexpr std::int64_t secondsPerDay = 24 * secondsPerHour;

std::string textOf(ASN1_TIME const* time)
{
    std::tm parts{};
    if (ASN1_TIME_to_tm(time, &parts) != 1) {
        throw std::runtime_error("The certificate has an unreadable time.");
    }
    std::array<char, 96> buffer{};
    static_cast<void>(std::snprintf(
        buffer.data(), buffer.size(), "%04d-%02d-%02dT%02d:%02d:%02dZ", parts.tm_year + 1900,
        parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec));
    return buffer.data();
}

/// Reads a text from left to right.
class Scanner
{
public:
    explicit Scanner(std::string_view text) : rest(text) {}

    bool isAtEnd() const { return rest.empty(); }

    bool skip(char character)
    {
        if (rest.empty() || rest.front() != character) {
            return false;
        }
        rest.remove_prefix(1);
        return true;
    }

    /// Reads exactly so many digits. Returns -1 for anything else.
    int number(std::size_t numDigits)
    {
        auto const digits = rest.substr(0, numDigits);
        if (digits.size() != numDigits || digits.find_first_not_of("0123456789") != std::string_view::npos) {
            return -1;
        }
        int value = -1;
        std::from_chars(digits.data(), digits.data() + digits.size(), value);
        rest.remove_prefix(numDigits);
        return value;
    }

private:
    std::string_view rest;
};

bool isLeapYear(int year)
{
    return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

int daysIn(int month, int year)
{
    static constexpr std::array<int, 12> days = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return month == 2 && isLeapYear(year) ? 29 : days[static_cast<std::size_t>(month - 1)];
}

std::int64_t daysSince1970(int year, int month, int day)
{
    std::int64_t const before = year - 1;
    std::int64_t days = before * 365 + before / 4 - before / 100 + before / 400 - 719162;
    for (int earlier = 1; earlier < month; ++earlier) {
        days += daysIn(earlier, year);
    }
    return days + day - 1;
}

bool isWithin(int value, int least, int most)
{
    return value >= least && value <= most;
}

/// Reads "Z", "+01:00" or "-01:00". Returns the seconds east of Greenwich, or nothing.
bool readOffset(Scanner& scanner, std::int64_t& offset)
{
    if (scanner.skip('Z')) {
        return true;
    }
    bool const isWest = scanner.skip('-');
    if (!isWest && !scanner.skip('+')) {
        return false;
    }
    int const hours = scanner.number(2);
    bool const hasColon = scanner.skip(':');
    int const minutes = scanner.number(2);
    offset = (hours * secondsPerHour + minutes * secondsPerMinute) * (isWest ? -1 : 1);
    return hasColon && isWithin(hours, 0, 23) && isWithin(minutes, 0, 59);
}

/// Reads the whole text as seconds since 1970. Returns false if it is no time.
bool readTime(std::string_view text, std::int64_t& result)
{
    Scanner scanner(text);
    int const year = scanner.number(4);
    bool separated = scanner.skip('-');
    int const month = scanner.number(2);
    separated = scanner.skip('-') && separated;
    int const day = scanner.number(2);
    separated = scanner.skip('T') && separated;
    int const hour = scanner.number(2);
    separated = scanner.skip(':') && separated;
    int const minute = scanner.number(2);
    separated = scanner.skip(':') && separated;
    int const second = scanner.number(2);
    if (scanner.skip('.')) {
        separated = scanner.number(1) >= 0 && separated;
        while (scanner.number(1) >= 0) {
        }
    }
    std::int64_t offset = 0;
    if (!separated || !readOffset(scanner, offset) || !scanner.isAtEnd() || year < 1 ||
        !isWithin(month, 1, 12) || !isWithin(day, 1, daysIn(month, year)) || !isWithin(hour, 0, 23) ||
        !isWithin(minute, 0, 59) || !isWithin(second, 0, 60)) {
        return false;
    }
    result = daysSince1970(year, month, day) * secondsPerDay + hour * secondsPerHour +
             minute * secondsPerMinute + second - offset;
    return true;
}

std::int64_t secondsOfUnit(char unit)
{
    switch (unit) {
    case 's':
        return 1;
    case 'm':
        return secondsPerMinute;
    case 'h':
        return secondsPerHour;
    case 'd':
        return secondsPerDay;
    case 'w':
        return 7 * secondsPerDay;
    default:
        return 0;
    }
}

} // namespace

std::string notBeforeOf(toolkit::Certificate const& certificate)
{
    return textOf(X509_get0_notBefore(certificate.getX509()));
}

std::string notAfterOf(toolkit::Certificate const& certificate)
{
    return textOf(X509_get0_notAfter(certificate.getX509()));
}

system_clock::time_point timeFrom(std::string const& text)
{
    std::int64_t since1970 = 0;
    if (!readTime(text, since1970)) {
        throw std::runtime_error("not a time such as 2027-01-31T12:00:00Z: " + text);
    }
    using std::chrono::duration_cast;
    if (since1970 > duration_cast<seconds>(system_clock::duration::max()).count() ||
        since1970 < duration_cast<seconds>(system_clock::duration::min()).count()) {
        throw std::runtime_error("a time that the system's clock cannot hold: " + text);
    }
    return system_clock::time_point(seconds(since1970));
}

seconds durationFrom(std::string const& text)
{
    constexpr std::int64_t longest = 1000000 * secondsPerDay;
    std::int64_t number = 0;
    auto const* const end = text.data() + text.size();
    auto const [next, error] = std::from_chars(text.data(), end, number);
    auto const unit = end - next == 1 ? secondsOfUnit(*next) : 0;
    if (error != std::errc() || number < 0 || unit == 0 || number > longest / unit) {
        throw std::runtime_error("not a duration such as 30d: " + text);
    }
    return seconds(number * unit);
}

seconds secondsBetween(system_clock::time_point from, system_clock::time_point to)
{
    return std::chrono::floor<seconds>(to).time_since_epoch() -
           std::chrono::floor<seconds>(from).time_since_epoch();
}

long daysOf(seconds duration)
{
    using Days = std::chrono::duration<long, std::ratio<secondsPerDay>>;
    return std::chrono::floor<Days>(duration).count();
}

} // namespace foundation::tools
