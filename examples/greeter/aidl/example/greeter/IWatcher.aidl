package example.greeter;

import example.greeter.Greeting;

/** What somebody implements who wants to hear of all greetings. The greeter waits for no watcher. */
oneway interface IWatcher {
    /** Somebody, perhaps the watcher itself, was greeted. */
    void onGreeted(in Greeting greeting);
}
