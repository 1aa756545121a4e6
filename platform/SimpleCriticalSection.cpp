#include "platform/SimpleCriticalSection.h"

CSimpleCriticalSection::CSimpleCriticalSection() {
    pthread_mutex_init(&m_mutex, nullptr);
}

CSimpleCriticalSection::~CSimpleCriticalSection() {
    pthread_mutex_destroy(&m_mutex);
}

int CSimpleCriticalSection::Lock() {
    return pthread_mutex_lock(&m_mutex);
}

int CSimpleCriticalSection::Unlock() {
    return pthread_mutex_unlock(&m_mutex);
}

bool CSimpleCriticalSection::TryLock() {
    return pthread_mutex_trylock(&m_mutex) == 0;
}

CAutoCriticalSection::CAutoCriticalSection(CSimpleCriticalSection& section) : m_section(section) {
    m_section.Lock();
}

CAutoCriticalSection::~CAutoCriticalSection() {
    m_section.Unlock();
}
