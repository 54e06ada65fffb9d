// SPDX-License-Identifier: MIT
#pragma once

// The helper's private state, for tests (VornNubraHelper declares this class
// its friend). Header only: the tests that use it link the helper.

#include <VornNubraHelper.h>

#include <Nubra/Manager.h>

class VornNubraHelperTestAccess {
public:
    // A helper of its own on the given manager (the caller deletes both).
    static VornNubraHelper* create(Nubra::Manager* manager) { return new VornNubraHelper(manager); }
    static Nubra::Manager*& manager(VornNubraHelper* h = VornNubraHelper::getInstance()) { return h->m_manager; }
    static QString userToken(const VornNubraHelper* h) { return h->m_userToken; }
    static const auto& interfaceMap(const VornNubraHelper* h) { return h->m_interfaceMap; }
    static const auto& userAccountMap(const VornNubraHelper* h) { return h->m_userAccountMap; }
    static const auto& cloudDiskMap(const VornNubraHelper* h) { return h->m_cloudDiskMap; }

    // Messages.
    static bool& connected(VornNubraHelper* h) { return h->m_serverConnected; }
    static Nubra::Reply* connectReply(VornNubraHelper* h) { return h->m_connectReply.data(); }
    static Nubra::Reply* subscribeReply(VornNubraHelper* h) { return h->m_subscribeReply.data(); }
    // Forgets the connection and subscription without a request.
    static void resetConnection(VornNubraHelper* h)
    {
        QObject::disconnect(h->m_abortConnection);
        h->m_connectReply.reset();
        h->m_subscribeReply.reset();
        h->m_serverConnected = false;
    }

    // Upgrades.
    static bool& upgradeConfigured(VornNubraHelper* h) { return h->m_upgradeConfigured; }
    static QSharedPointer<Nubra::Reply>& downloadReply(VornNubraHelper* h) { return h->m_downloadReply; }
};

// The helper singleton's manager, whose cloud tests script.
inline Nubra::Manager* helperManager() { return VornNubraHelperTestAccess::manager(); }
