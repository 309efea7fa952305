package velmora.sample;

import velmora.sample.ISample;

/** Called back; names the interface that names it. */
oneway interface IListener {
    void onText(String text);
    void onSample(ISample sample);
}
