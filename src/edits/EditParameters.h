#pragma once

namespace tapekeep {

// The settings of an edit, one case per EditKind; a trim is the only one. Seconds from the start
// of the source.
struct EditParameters {
    struct SampleTrim {
        double start = 0;             // first kept instant
        double end = 0;               // end of the kept range
        double originalDuration = 0;  // of the source when it was trimmed
        bool operator==(const SampleTrim&) const = default;
    };
    SampleTrim sampleTrim;
    bool operator==(const EditParameters&) const = default;
};

}  // namespace tapekeep
