#include "tests/cardlibs/proxy_fixture.h"

#include "tests/cardlibs/outside_tools.h"
#include "tools/softcard/card_token.h"

#include <dlfcn.h>

#include <cstdlib>
#include <stdexcept>

namespace cardlibs_test {
namespace {

namespace fs = std::filesystem;

// SoftHSM2 keeps its state once per loaded file, so the proxy gets a file of its own: otherwise the
// test's look at the card would log the card libraries in and out.
ProxyControl* loadProxy()
{
    static const TemporaryFolder folder;
    const fs::path copy = folder.path() / "libsofthsm2.so";
    fs::copy_file(softhsmModule(), copy);
    if (setenv("PKCS11_PROXY_MODULE", copy.c_str(), 1) != 0)
        throw std::runtime_error("cannot set PKCS11_PROXY_MODULE");
    void* library = dlopen(PROXY_FILE, RTLD_NOW | RTLD_LOCAL);
    auto* get = library == nullptr
                    ? nullptr
                    : reinterpret_cast<ProxyControl* (*)()>(dlsym(library, "proxyControl"));
    if (get == nullptr)
        throw std::runtime_error("cannot load the PKCS#11 proxy");
    return get();
}

ProxyControl* loadedProxy()
{
    static ProxyControl* const control = loadProxy();
    return control;
}

}  // namespace

ProxyFixture::ProxyFixture()
    : m_control(loadedProxy())
{
    m_control->reset();
    writeTable(tableEntry());
    startProxy();
}

ProxyFixture::~ProxyFixture()
{
    m_control->reset();
}

void ProxyFixture::startProxy()
{
    cardlibs::token::Module& module = cardlibs::token::Module::load(PROXY_FILE);
    // Whatever the card libraries believe after the failures that were played.
    module.callForResult(&CK_FUNCTION_LIST::C_Finalize, static_cast<void*>(nullptr));
    module.reinitialise();
}

std::string ProxyFixture::tableEntry()
{
    return std::string("[software Proxy]\nmodule = ") + PROXY_FILE +
           "\nmanufacturer = SoftHSM project\nmodel = SoftHSM v2\n";
}

void ProxyFixture::keepCard()
{
    fs::remove_all(kept());
    fs::copy(folder().tokens(), kept(), fs::copy_options::recursive);
}

void ProxyFixture::restoreCard()
{
    fs::remove_all(folder().tokens());
    fs::copy(kept(), folder().tokens(), fs::copy_options::recursive);
    startProxy();
}

}  // namespace cardlibs_test
