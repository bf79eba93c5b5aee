// The card-access library, answering from the script.

#include "card_script.h"
#include "imports/molvane.h"

#include <gtest/gtest.h>

using support::expectZeroed;
using support::shown;
using support::Step;
using support::takeStep;
using support::write;

int mvGetReaderName(char* names, long* length)
{
    const Step step = takeStep("mvGetReaderName", {shown(*length)});
    expectZeroed(names, 1024, "the reader list");
    write(names, 1024, step.output(0));
    return step.result();
}

int mvInitializeFromATRLite(char* reader, char* atrTable, char* applicationFolder)
{
    const Step step = takeStep("mvInitializeFromATRLite",
                               {shown(reader), shown(atrTable), shown(applicationFolder)});
    step.spoil({reader, atrTable, applicationFolder});
    return step.result();
}

int mvIsCNSINCARD()
{
    return takeStep("mvIsCNSINCARD", {}).result();
}

int mvIsFERROLUX()
{
    return takeStep("mvIsFERROLUX", {}).result();
}

int mvLogin(const char* pin)
{
    return takeStep("mvLogin", {shown(pin)}).result();
}

int mvFinalize()
{
    return takeStep("mvFinalize", {}).result();
}

int mvGetPKCS11FromATRLite(char* reader, char* module, char* atrTable)
{
    const Step step = takeStep("mvGetPKCS11FromATRLite", {shown(reader), shown(atrTable)});
    expectZeroed(module, 64, "the module name");
    write(module, 64, step.output(0));
    step.spoil({reader, atrTable});
    return step.result();
}

int mvCNSToBeActivatedLite(long slot)
{
    return takeStep("mvCNSToBeActivatedLite", {shown(slot)}).result();
}

int mvCheckSmartCard(char* slotDescription, char* manufacturerID, char* model, char* serialNumber)
{
    const Step step = takeStep("mvCheckSmartCard", {});
    expectZeroed(slotDescription, 65, "the slot description");
    expectZeroed(manufacturerID, 33, "the manufacturer");
    expectZeroed(model, 17, "the model");
    expectZeroed(serialNumber, 17, "the serial number");
    write(slotDescription, 65, step.output(0));
    write(manufacturerID, 33, step.output(1));
    write(model, 17, step.output(2));
    write(serialNumber, 17, step.output(3));
    return step.result();
}

int getSlotBriskoLite()
{
    return takeStep("getSlotBriskoLite", {}).result();
}

int mvLastError(char* buffer, int size)
{
    const Step step = takeStep("mvLastError", {shown(size)});
    EXPECT_EQ(size, 255);
    expectZeroed(buffer, 255, "the error text");
    write(buffer, 255, step.output(0));
    return step.result();
}

int mvLastErrno()
{
    return takeStep("mvLastErrno", {}).result();
}
