#include <kestrixkit/foundation/KXCallStack.h>

#include <array>
#include <cstdlib>
#include <cxxabi.h>
#include <dlfcn.h>
#include <execinfo.h>

#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace {

QString callStackLine(void *address)
{
    Dl_info info {};
    const QString hex = "0x"_L1 + QString::number(quintptr(address), 16);
    if (!dladdr(address, &info))
        return hex;
    const QString library = QFileInfo(QString::fromLocal8Bit(info.dli_fname)).fileName();
    if (!info.dli_sname) // a hidden function: the offset in its library still finds it
        return u"%1 +0x%2 %3"_s.arg(library).arg(quintptr(address) - quintptr(info.dli_fbase), 0, 16).arg(hex);
    int status = 0;
    const std::unique_ptr<char, void (*)(void *)> plain(
        abi::__cxa_demangle(info.dli_sname, nullptr, nullptr, &status), &std::free);
    const QString name = QString::fromUtf8(status == 0 ? plain.get() : info.dli_sname);
    return u"%1 %2 +0x%3 %4"_s.arg(library, name).arg(quintptr(address) - quintptr(info.dli_saddr), 0, 16).arg(hex);
}

}

[[gnu::noinline]] KXCallStack KXCallStack::capture(int skip)
{
    constexpr int mostFrames = 100;
    constexpr int mostSkipped = 8;
    std::array<void *, mostFrames + mostSkipped> frames;
    const auto end = frames.begin() + backtrace(frames.data(), int(frames.size()));
    // The caller's frame is where we return to; before it stand this function and whatever intercepts backtrace.
    auto first = std::find(frames.begin(), end, __builtin_return_address(0));
    first = first == end ? frames.begin() : first;
    first += std::min<qptrdiff>(std::clamp(skip, 0, 4), end - first);
    KXCallStack stack;
    stack.m_addresses.assign(first, std::min(end, first + mostFrames));
    return stack;
}

QStringList KXCallStack::symbols() const
{
    QStringList lines;
    lines.reserve(qsizetype(m_addresses.size()));
    for (void *address : m_addresses)
        lines.append(callStackLine(address));
    return lines;
}
