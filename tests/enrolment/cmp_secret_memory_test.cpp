// That a shared secret does not outlive the run that needs it.

#include "cmp_fixture.h"
#include "expected_error.h"
#include "tests/support/memory_scan.h"

#include <QFile>

#include <fcntl.h>
#include <unistd.h>

namespace trial {

namespace {

using CmpSecretMemory = Cmp;

}  // namespace

TEST_F(CmpSecretMemory, afterARequest_holdsNoSecret)
{
    // Long, because an allocator writes over the beginning of what it takes back.
    support::Secret secret(40);
    // A server in this process must not know it either, so it only takes the request.
    QByteArray taken;
    serve([&](const Received& received, int /*number*/) {
        taken = received.body;
        return reply(500, {}, {});
    });
    auto configuration = withSecret();
    const QString path = file("unknown", {});
    const int descriptor =
        ::open(QFile::encodeName(path).constData(), O_WRONLY | O_TRUNC | O_CLOEXEC);
    ASSERT_GE(descriptor, 0);
    secret.writeLine(descriptor);
    ASSERT_EQ(::close(descriptor), 0);
    set(configuration, "secret-file", path);
    EXPECT_EQ(failureOf([&] { return enrol(configuration); }).cause, "unreachable");
    EXPECT_FALSE(taken.isEmpty());
    EXPECT_EQ(secret.copiesInMemory(), 0);
}

}  // namespace trial
