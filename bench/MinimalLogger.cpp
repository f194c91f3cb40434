// The least that logs as the agent does: reads a configuration and writes a line. What the logging library
// takes of a program by itself.

#include <log4cxx/logger.h>
#include <log4cxx/mdc.h>
#include <log4cxx/xml/domconfigurator.h>

int main(int argc, char** argv)
{
    if (argc > 1)
    {
        log4cxx::xml::DOMConfigurator::configure(argv[1]);
    }
    log4cxx::MDC::put("threadName", "main");
    log4cxx::Logger::getLogger("Minimal")->info(L"a line");
    return 0;
}
