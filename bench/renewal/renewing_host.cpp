// The smallest host that makes a whole renewal, in steps that can be told apart: after each it
// names the step on standard output and waits for a line, during which the benchmark reads its
// counters and plays the certification authority.
//
// Usage: renewing_host FOLDER, with the PIN in RENEWAL_COST_PIN. The request is written to
// FOLDER/request.pem and the certificate read from FOLDER/certificate.pem.

#include "bench/renewal/step_names.h"
#include "card_v_func.h"

#include <QFile>

#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

namespace keys = renew_context;

void check(bool isDone, const char* step)
{
    if (!isDone) {
        throw std::runtime_error(std::string(step) + " failed: " + ErrorMessage.toStdString());
    }
}

void mark(const char* step)
{
    std::printf("%s\n", step);
    std::fflush(stdout);
    int answer = 0;
    while ((answer = std::getchar()) != '\n') {
        if (answer == EOF) {
            throw std::runtime_error("nobody waits for the next step");
        }
    }
}

QString firstDue(const RenewContext& context)
{
    for (int number = 1; context.contains(keys::rowKey(keys::autRowPrefix, number)); ++number) {
        const RenewRecord record = context.value(keys::rowKey(keys::autRowPrefix, number));
        if (record.value(keys::renewalMode).isEmpty()) {
            return record.value(keys::renewalId);
        }
    }
    throw std::runtime_error("no authentication certificate is due");
}

void lookAgain(RenewContext& context)
{
    const RenewRecord settings = context.value(keys::settingsRow);
    context.clear();
    context.insert(keys::settingsRow, settings);
    check(fill_sc_objects(&context) == inventory_result::completed, bench::step::lastLook);
}

void request(RenewContext& context, const QString& certId, const QString& folder)
{
    std::vector<char> text(requestBufferSize);
    check(Tarvelo_gen_p10_by_certid(&context, certId, text.data()) == 1, bench::step::request);
    QFile file(folder + QStringLiteral("/request.pem"));
    check(file.open(QIODevice::WriteOnly) && file.write(text.data()) > 0, "writing the request");
}

void install(RenewContext& context, const QString& certId, const QString& folder)
{
    QFile file(folder + QStringLiteral("/certificate.pem"));
    check(file.open(QIODevice::ReadOnly), "reading the certificate");
    QByteArray certificate = file.readAll();
    check(Tarvelo_install_cert(&context, certId, certificate.data()) == 1,
          bench::step::installation);
}

void renew(RenewContext& context, const QString& folder)
{
    using namespace bench;
    init_renew_system(&context);
    mark(step::start);
    check(set_reader(&context, {}), step::reader);
    mark(step::reader);
    check(set_pin(&context, QString::fromLocal8Bit(qgetenv("RENEWAL_COST_PIN"))) &&
              verify_pin(&context),
          step::pin);
    mark(step::pin);
    check(verify_sc_and_reader(&context) == card_verification::accepted, step::cardCheck);
    mark(step::cardCheck);
    check(fill_sc_objects(&context) == inventory_result::completed, step::inventory);
    mark(step::inventory);
    const QString certId = firstDue(context);
    request(context, certId, folder);
    mark(step::request);
    install(context, certId, folder);
    mark(step::installation);
    lookAgain(context);
    mark(step::lastLook);
    free_renew_system(&context);
}

}  // namespace

int main(int argc, char* argv[])
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: renewing_host FOLDER\n");
        return 2;
    }
    RenewContext context;
    try {
        renew(context, QString::fromLocal8Bit(argv[1]));
    } catch (const std::exception& error) {
        std::fprintf(stderr, "renewing_host: %s\n", error.what());
        free_renew_system(&context);
        return 1;
    }
    return 0;
}
