// SPDX-License-Identifier: GPL-3.0-or-later
// Another process on a store, told by lines on its standard input; answers each with a line.
#include "objectstore/TestModel.h"

#include <iostream>
#include <sstream>

namespace ledgerfinch::testing {
namespace {

Ref<Paper> insertPaper(ManagedObjectContext& context, std::int64_t id) {
    auto paper = context.insert<Paper>();
    paper->setValue(Paper::Id, id);
    paper->setTitle("Paper " + std::to_string(id));
    auto body = context.insert<Body>();
    body->setValue(Body::Text, std::string(3000, static_cast<char>('a' + id % 26)));
    paper->setToOne(Paper::Body, body.get());
    for (const std::int64_t tagId : {1, 2}) {
        auto tag = context.firstWithID<Tag>(tagId);
        if (!tag) {
            tag = context.insert<Tag>();
            tag->setValue(Named::Id, tagId);
        }
        paper->addToMany(Paper::Tags, *tag);
    }
    return paper;
}

/// Carries out one command; true when it was saved.
bool carryOut(ManagedObjectContext& context, const std::string& command, std::istringstream& arguments) {
    std::int64_t id = 0;
    std::string text;
    if (command == "insert" && arguments >> id) {
        insertPaper(context, id);
    } else if (command == "title" && arguments >> id >> text) {
        const auto paper = context.firstWithID<Paper>(id);
        if (!paper) return false;
        paper->setTitle(text);
    } else if (command == "delete" && arguments >> id) {
        const auto paper = context.firstWithID<Paper>(id);
        if (!paper) return false;
        context.remove(*paper);
    } else if (command == "titles" && arguments >> id) {
        // Many saves of one property of the papers 1 to 5.
        for (std::int64_t step = 1; step <= id; ++step) {
            const auto paper = context.firstWithID<Paper>(step % 5 + 1);
            if (!paper) return false;
            paper->setTitle("Step " + std::to_string(step));
            insertPaper(context, 100'000 + step);
            if (!context.save()) return false;
        }
    } else {
        return false;
    }
    return context.save().ok();
}

int serve(const char* file) {
    const Logger log(std::make_shared<MemoryLogSink>(), "StoreWriter");
    auto container = PersistentContainer::open(archiveModel(), {.file = file, .vfs = {}}, log);
    if (!container) {
        std::cout << "failed " << container.error().message << std::endl;
        return 1;
    }
    auto context = (*container)->newBackgroundContext();
    std::cout << "ready" << std::endl;
    std::string line;
    while (std::getline(std::cin, line)) {
        std::istringstream arguments(line);
        std::string command;
        arguments >> command;
        if (command == "stream") {
            // Until the process is killed: a save, then its id.
            std::int64_t id = 0;
            for (arguments >> id;; ++id) {
                bool saved = false;
                context->performAndWait([&] {
                    insertPaper(*context, id);
                    saved = context->save().ok();
                });
                std::cout << (saved ? "saved " : "failed ") << id << std::endl;
                if (!saved) return 1;
            }
        }
        bool done = false;
        context->performAndWait([&] { done = carryOut(*context, command, arguments); });
        std::cout << (done ? "done" : "failed") << std::endl;
    }
    return 0;
}

} // namespace
} // namespace ledgerfinch::testing

int main(int argc, char** argv) {
    return argc == 2 ? ledgerfinch::testing::serve(argv[1]) : 2;
}
