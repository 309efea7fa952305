package vendor.quorin.velmora_hub;

/**
 * The handle of one registration or one subscription, made by the hub.
 *
 * It has no methods: its holder gives it back to the manager that issued it. It stays valid as an
 * argument after what it stands for has ended.
 */
@VintfStability
interface IToken {
}
