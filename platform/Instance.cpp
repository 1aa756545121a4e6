#include "platform/Instance.h"

#include "platform/ConstructionOrder.h"

RAVO_CONSTRUCT_INSTANCE CInstance g_Instance;

CInstance::CInstance() : m_workingDirectory("./") {}

std::string CInstance::GetWorkingDirectory() const {
    return m_workingDirectory;
}
