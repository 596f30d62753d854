// What the demo device asks of the page. web/src/line/demo.ts gives the module the two functions that are called here.

mergeInto(LibraryManager.library, {
    demo_send: function (bytes, length) {
        Module['send'](HEAPU8.slice(bytes, bytes + length));
    },

    demo_pause__deps: ['$Asyncify'],
    demo_pause: function (milliseconds, endsWithBytes) {
        return Asyncify.handleSleep(function (goOn) {
            Module['pause'](milliseconds, endsWithBytes !== 0, goOn);
        });
    },
});
