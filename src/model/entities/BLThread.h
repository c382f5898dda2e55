#pragma once

#include "model/entities/gen/BLThread.h"

namespace brassline {

// A conversation with a client: a container whose children are the documents started in it.
class BLThread : public gen::BLThread {
public:
    // Inserts a new "Invoice" whose parent is this thread, 0.2 seconds later on the main
    // run loop. Nothing happens when the thread is gone or deleted by then.
    void addDocument();
};

}  // namespace brassline
